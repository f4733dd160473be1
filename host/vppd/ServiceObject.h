// SPDX-License-Identifier: Apache-2.0
// The VPP service of this process, for clients on the bus.
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

// An object on the bus, from construction to destruction, that creates a SessionObject for each
// session. A session belongs to the connection that requested it and ends when that connection
// leaves the bus. Calls arrive on the thread that reads the bus, which never waits here: each
// session is opened, carries out its calls, and ends on a thread of its own.
class ServiceObject final : private KeepsBus,
                            public sdbus::AdaptorInterfaces<::org::qoz::VppService1_adaptor> {
  public:
    // Must be constructed before Bus::start().
    ServiceObject(std::shared_ptr<Bus> connection, std::shared_ptr<vppservice::Service> service);
    // Ends all sessions and waits for them for kCallLimit at most.
    ~ServiceObject();

    ServiceObject(const ServiceObject&) = delete;
    ServiceObject& operator=(const ServiceObject&) = delete;

  private:
    // All sessions that have not ended. Shared with the sessions, because one that ends slowly may
    // outlive this object.
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
    // Ends the sessions of the client with this unique name, or all sessions if it is empty.
    void endSessionsOf(const std::string& client);

    const std::shared_ptr<AnswerGate> mGate = std::make_shared<AnswerGate>(bus);
    const std::shared_ptr<vppservice::Service> mService;
    const std::shared_ptr<Sessions> mSessions = std::make_shared<Sessions>();
    const std::shared_ptr<vppservice::Quota> mTotalQuota;  // of all clients

    // Used only on the reading thread.
    uint64_t mMade = 0;  // number of sessions, also of those that have ended
    std::map<std::string, std::weak_ptr<vppservice::Quota>> mQuotas;  // by client
    Refusals mRefusals;
};

}  // namespace qoz::host::vppd
