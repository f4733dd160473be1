// SPDX-License-Identifier: Apache-2.0
// A session of the service in this process, for a client on the bus.
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

// An object on the bus, owned by the ServiceObject. Calls arrive on the thread that reads the bus
// and are carried out one after another by a thread of this object, so that a session that hangs
// delays no other. end() removes the object from the bus on that thread, and then destroys it. Only
// the connection that requested the session may call it. Calls that wait count against the client's
// quota.
class SessionObject final : private KeepsBus,
                            public sdbus::AdaptorInterfaces<::org::qoz::VppSession1_adaptor>,
                            public std::enable_shared_from_this<SessionObject> {
  public:
    using Opened = PendingAnswer<sdbus::ObjectPath>;

    // The client that the session belongs to.
    struct Client {
        std::string name;  // the unique name of its connection
        std::shared_ptr<vppservice::Quota> quota;
        vppservice::Reservation reservation;  // for this session
    };

    // `onEnded` is called on the object's thread when the object has left the bus. Throws
    // std::system_error if the thread cannot be created.
    SessionObject(std::shared_ptr<Bus> connection, std::string path, Client client,
                  std::function<void()> onEnded);
    ~SessionObject() = default;

    SessionObject(const SessionObject&) = delete;
    SessionObject& operator=(const SessionObject&) = delete;

    // Requests a session from the service and answers with the path of this object, or with
    // kNoSession if there is no session; the object then ends. Must be called once, before all
    // other functions.
    void open(const std::shared_ptr<vppservice::Service>& service, int32_t flags, Opened&& answer);

    // Ends the session and this object. Returns at once: calls that wait are dropped, a call that
    // is being carried out fails, and then the session is released. Callable on any thread.
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

    // Returns whether the caller may call this object. If not, answers with an error.
    bool admits(const char* operation, PendingAnswer<int32_t>& answer);
    void refuse(const char* operation, Answer&& answer,
                vpp::VppError error = vpp::VppError::VPP_ERR_PARAM);
    void carryOut(const char* operation, Answer&& answer, Call call, uint64_t descriptors = 0);
    void carryOutWithCallback(Completion kind, const char* operation, Answer&& answer, Call call,
                              uint64_t descriptors = 0);
    ndk::ScopedAStatus callWithCallback(Completion kind, const Call& call,
                                        vppservice::Session& session, vpp::VppError* error);
    ndk::ScopedAStatus initSession(int32_t flags, const std::string& callbacks,
                                   vppservice::Session& session, vpp::VppError* error);
    void adopt(std::shared_ptr<vppservice::Session> session) EXCLUDES(mLock);
    std::shared_ptr<vppservice::Session> session() EXCLUDES(mLock);
    void finish();

    const std::shared_ptr<AnswerGate> mGate = std::make_shared<AnswerGate>(bus);
    const Client mClient;
    const std::function<void()> mOnEnded;
    Refusals mRefusals;  // used only on the reading thread

    std::mutex mLock;
    std::shared_ptr<vppservice::Session> mSession GUARDED_BY(mLock);
    bool mEnded GUARDED_BY(mLock) = false;

    // Owned by the session's callback object. Used only on the executor's thread.
    std::weak_ptr<CallbackOutbox> mOutbox;

    vppservice::SerialExecutor mExecutor;
};

}  // namespace qoz::host::vppd
