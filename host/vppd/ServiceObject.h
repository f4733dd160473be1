// SPDX-License-Identifier: Apache-2.0
// The service of this process, as an object on the bus.
#pragma once

#include <android-base/thread_annotations.h>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "host/vppd/Bus.h"
#include "host/vppd/PendingAnswer.h"
#include "host/vppd/Refusals.h"
#include "host/vppd/SessionObject.h"
#include "host/vppservice/Quota.h"
#include "vppd/VppAdaptor.h"

namespace qoz::host::vppd {

// Exported from construction to destruction, with the sessions that it hands out. A session belongs
// to the connection that asked for it, and ends with that. Calls arrive on the reading thread,
// which never waits here: each session is opened, served and ended on a thread of its own.
class ServiceObject final : private KeepsBus,
                            public sdbus::AdaptorInterfaces<::org::qoz::VppService1_adaptor> {
  public:
    // To be made before the connection is read.
    ServiceObject(std::shared_ptr<Bus> connection, std::shared_ptr<vppservice::Service> service);
    // Ends all sessions, and waits for them at most as long as a call may take.
    ~ServiceObject();

    ServiceObject(const ServiceObject&) = delete;
    ServiceObject& operator=(const ServiceObject&) = delete;

  private:
    // What there is, also for sessions that take longer to end than this object.
    struct Sessions {
        std::mutex lock;
        std::condition_variable ended;
        std::map<std::string, std::shared_ptr<SessionObject>> byPath GUARDED_BY(lock);
    };

    void GetNewVppSession(sdbus::Result<sdbus::ObjectPath>&& result, int32_t flags) override;
    void GetSessionCount(sdbus::Result<int32_t>&& answer) override;
    void GetFaultsFired(sdbus::Result<uint64_t>&& answer) override;

    std::shared_ptr<SessionObject> makeSession(const std::string& client);
    std::shared_ptr<vppservice::Quota> quotaOf(const std::string& client);
    // Of one client; empty: of all.
    void endSessionsOf(const std::string& client);

    const std::shared_ptr<AnswerGate> mGate = std::make_shared<AnswerGate>(bus);
    const std::shared_ptr<vppservice::Service> mService;
    const std::shared_ptr<Sessions> mSessions = std::make_shared<Sessions>();
    const std::shared_ptr<vppservice::Quota> mWhole;  // of all clients

    // The reading thread's own.
    uint64_t mMade = 0;
    std::map<std::string, std::weak_ptr<vppservice::Quota>> mQuotas;  // by client
    Refusals mRefusals;
};

}  // namespace qoz::host::vppd
