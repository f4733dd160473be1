#include "host/vppd/ServiceObject.h"

#include "host/vppd/Names.h"

#include <android/binder_manager.h>
#include <host/control.h>
#include <host/platform/ServiceRegistry.h>

#include <utility>

namespace qoz::host::vppd {
namespace {

ndk::SpAIBinder lookUp() {
    const std::string instance = defaultInstance<vpp::IVppService>();
    return ndk::SpAIBinder(AServiceManager_checkService(instance.c_str()));
}

}  // namespace

// A service that has died is no longer registered.
ServiceObject::ServiceObject(std::shared_ptr<Bus> connection, std::function<void()> onEnd)
    : KeepsBus{std::move(connection)},
      AdaptorInterfaces(bus->connection(), kServicePath),
      mLook([onEnd = std::move(onEnd)] {
          if (lookUp().get() == nullptr) onEnd();
      }),
      mService(vpp::IVppService::fromBinder(lookUp())) {
    registerAdaptor();
    bus->watchOwners({}, [this](const auto& name, const auto&, const auto& after) {
        if (after.empty()) mExecutor.post([this, name] { closeAllOf(name); });
    });
}

ServiceObject::~ServiceObject() {
    unregisterAdaptor();
    bus->stopTelling();
    // What sessions post while they go is dropped; until then the executor is needed.
    const auto emptied = std::make_shared<std::promise<void>>();
    mExecutor.post([this, emptied] {
        mSessions.clear();
        emptied->set_value();
    });
    emptied->get_future().wait();
    mExecutor.stop(kCallLimit);
}

template <typename Answer, typename Call>
void ServiceObject::carryOut(Answer answer, Call call) {
    const auto owed = std::make_shared<Answer>(std::move(answer));
    mExecutor.post([this, owed, call = std::move(call)] {
        try {
            const auto result = call();
            if (result) {
                owed->returnResults(*result);
            } else {
                owed->returnError(sdbus::Error(kDeadObject, "the call failed below its result"));
            }
        } catch (const sdbus::Error&) {
            // Who asked is gone.
        }
        mLook();
    });
}

void ServiceObject::GetNewVppSession(sdbus::Result<sdbus::ObjectPath>&& answer, int32_t flags) {
    const std::string client = getObject().getCurrentlyProcessedMessage()->getSender();
    carryOut(std::move(answer), [this, flags, client]() -> std::optional<sdbus::ObjectPath> {
        std::shared_ptr<vpp::IVpp> session;
        if (!mService->getNewVppSession(flags, &session).isOk()) return std::nullopt;
        if (session == nullptr) return sdbus::ObjectPath(kNoSession);
        return sdbus::ObjectPath(open(client, std::move(session)));
    });
}

void ServiceObject::GetSessionCount(sdbus::Result<int32_t>&& answer) {
    carryOut(std::move(answer), [this]() -> std::optional<int32_t> {
        int32_t count = 0;
        if (!mService->getSessionCount(&count).isOk()) return std::nullopt;
        return count;
    });
}

void ServiceObject::GetFaultsFired(sdbus::Result<uint64_t>&& answer) {
    carryOut(std::move(answer), [] { return std::optional<uint64_t>(faultsFired()); });
}

std::string ServiceObject::open(const std::string& client, std::shared_ptr<vpp::IVpp> session) {
    std::string path = kSessionFolder + std::to_string(++mMade);
    SessionObject::Hooks hooks{
        [this, path] { mExecutor.post([this, path] { mSessions.erase(path); }); }, mLook};
    mSessions.emplace(path, std::make_unique<SessionObject>(bus, path, client, std::move(session),
                                                            std::move(hooks)));
    return path;
}

void ServiceObject::closeAllOf(const std::string& client) {
    std::erase_if(mSessions, [&](const auto& entry) { return entry.second->client() == client; });
}

}  // namespace qoz::host::vppd
