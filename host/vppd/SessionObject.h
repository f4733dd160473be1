// SPDX-License-Identifier: Apache-2.0
// A session of the service, as an object on the bus.
#pragma once

#include <android-base/thread_annotations.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/vppd/Bus.h"
#include "host/vppd/CallbackOutbox.h"
#include "host/vppd/PendingAnswer.h"
#include "host/vppd/Records.h"
#include "host/vppd/Refusals.h"
#include "host/vppservice/Quota.h"
#include "host/vppservice/SerialExecutor.h"
#include "host/vppservice/Service.h"
#include "vppd/VppAdaptor.h"

namespace qoz::host::vppd {

// Exported from construction until it has ended, and then destroyed, on a thread of its own, which
// also carries its calls out, one after the other: a session that hangs holds nobody else up. Only
// the connection that asked for it may call it. Calls wait within the client's quota.
class SessionObject final : private KeepsBus,
                            public sdbus::AdaptorInterfaces<::org::qoz::VppSession1_adaptor>,
                            public std::enable_shared_from_this<SessionObject> {
  public:
    using Opened = PendingAnswer<sdbus::ObjectPath>;

    // Who asked, and what it may have. The reservation is the session's own.
    struct Client {
        std::string name;  // unique on the bus
        std::shared_ptr<vppservice::Quota> quota;
        vppservice::Reservation reservation;
    };

    // `onEnded` is called on the object's thread when it is no longer exported. Throws
    // std::system_error when there is no thread to be had.
    SessionObject(std::shared_ptr<Bus> connection, std::string path, Client client,
                  std::function<void()> onEnded);
    ~SessionObject() = default;

    SessionObject(const SessionObject&) = delete;
    SessionObject& operator=(const SessionObject&) = delete;

    // Gets the session that this stands for, and answers with its path; ends when there is none.
    // Once, first of all.
    void open(const std::shared_ptr<vppservice::Service>& service, int32_t flags, Opened&& answer);

    // Returns at once: what waits is dropped, what runs fails, and the session is closed and
    // terminated after that. On any thread.
    void end() EXCLUDES(mLock);

    const std::string& client() const { return mClient.name; }

  private:
    using Answer = sdbus::Result<int32_t>;
    using Call = std::function<ndk::ScopedAStatus(vppservice::Session&, vpp::VppError*)>;

    void InitSession(Answer&& answer, int32_t flags, std::string client,
                     sdbus::ObjectPath callbacks) override;
    void Open(Answer&& answer) override;
    void Close(Answer&& answer) override;
    void Drain(Answer&& answer) override;
    void Flush(Answer&& answer, int32_t port) override;
    void QueueBuf(Answer&& answer, int32_t port, BusBuffer buffer) override;
    void Reconfigure(Answer&& answer, BusPort input, BusPort output) override;
    void SetCtrlAis(Answer&& answer, BusAis control) override;
    void SetCtrlFrc(Answer&& answer, std::vector<BusSegment> segments) override;
    void SetCtrlVppMode(Answer&& answer, int32_t mode) override;
    void SetParameter(Answer&& answer, int32_t port, BusPort param) override;
    void TerminateSession(Answer&& answer) override;
    void Release() override;

    // False when a stranger calls, who is told so.
    bool admits(const char* operation, PendingAnswer<int32_t>& answer);
    void refuse(const char* operation, Answer&& answer,
                vpp::VppError error = vpp::VppError::VPP_ERR_PARAM);
    void carryOut(const char* operation, Answer&& answer, Call call, uint64_t descriptors = 0);
    void carryOutOwing(Owed kind, const char* operation, Answer&& answer, Call call,
                       uint64_t descriptors = 0);
    ndk::ScopedAStatus callOwing(Owed kind, const Call& call, vppservice::Session& session,
                                 vpp::VppError* error);
    ndk::ScopedAStatus initSession(int32_t flags, const std::string& callbacks,
                                   vppservice::Session& session, vpp::VppError* error);
    void adopt(std::shared_ptr<vppservice::Session> session) EXCLUDES(mLock);
    std::shared_ptr<vppservice::Session> session() EXCLUDES(mLock);
    void finish();

    const std::shared_ptr<AnswerGate> mGate = std::make_shared<AnswerGate>(bus);
    const Client mClient;
    const std::function<void()> mOnEnded;
    Refusals mRefusals;  // of the reading thread

    std::mutex mLock;
    std::shared_ptr<vppservice::Session> mSession GUARDED_BY(mLock);
    bool mEnded GUARDED_BY(mLock) = false;

    std::weak_ptr<CallbackOutbox> mOutbox;  // of the executor

    vppservice::SerialExecutor mExecutor;
};

}  // namespace qoz::host::vppd
