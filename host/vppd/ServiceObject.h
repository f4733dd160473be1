// The service of this process, as an object on the bus.
#pragma once

#include "host/vppd/Bus.h"
#include "host/vppd/SessionObject.h"
#include "host/vppservice/SerialExecutor.h"
#include "vppd/VppAdaptor.h"

#include <aidl/vendor/vuq/hardware/vpp/IVppService.h>

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace qoz::host::vppd {

// Exported from construction to destruction, with the sessions that it hands out; those of a client
// that leaves the bus go. What is here is the executor's, once the object is made.
class ServiceObject final : private KeepsBus,
                            public sdbus::AdaptorInterfaces<::org::qoz::VppService1_adaptor> {
  public:
    // To be made before the connection is read. `onEnd` is called, on any thread and perhaps more
    // than once, when the service has died.
    ServiceObject(std::shared_ptr<Bus> connection, std::function<void()> onEnd);
    ~ServiceObject();

    ServiceObject(const ServiceObject&) = delete;
    ServiceObject& operator=(const ServiceObject&) = delete;

  private:
    void GetNewVppSession(sdbus::Result<sdbus::ObjectPath>&& answer, int32_t flags) override;
    void GetSessionCount(sdbus::Result<int32_t>&& answer) override;
    void GetFaultsFired(sdbus::Result<uint64_t>&& answer) override;

    template <typename Answer, typename Call>
    void carryOut(Answer answer, Call call);
    std::string open(const std::string& client, std::shared_ptr<vpp::IVpp> session);
    void closeAllOf(const std::string& client);

    const std::function<void()> mLook;
    const std::shared_ptr<vpp::IVppService> mService;
    std::map<std::string, std::unique_ptr<SessionObject>> mSessions;  // by path
    uint64_t mMade = 0;
    vppservice::SerialExecutor mExecutor;
};

}  // namespace qoz::host::vppd
