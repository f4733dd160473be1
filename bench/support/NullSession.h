// A VPP service of one session that a bench brings, and a client that owns nothing.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/BnVppService.h>
#include <host/platform/ServiceRegistry.h>
#include <host/vppservice/NullSession.h>
#include <qoz/VppComponent.h>

#include <memory>
#include <string>

namespace qoz::bench {

namespace vpp = ::aidl::vendor::vuq::hardware::vpp;

using host::NullSession;

// Gives the one session it was made with; registered while it lives.
class NullService {
  public:
    explicit NullService(std::shared_ptr<NullSession> session)
        : mFactory(ndk::SharedRefBase::make<Factory>(std::move(session))) {
        host::addService(name(), mFactory->asBinder());
    }
    ~NullService() { host::removeService(name()); }

    NullService(const NullService&) = delete;
    NullService& operator=(const NullService&) = delete;

  private:
    class Factory : public vpp::BnVppService {
      public:
        explicit Factory(std::shared_ptr<NullSession> session) : mSession(std::move(session)) {}
        ndk::ScopedAStatus getNewVppSession(int32_t, std::shared_ptr<vpp::IVpp>* out) override {
            *out = mSession;
            return ndk::ScopedAStatus::ok();
        }
        ndk::ScopedAStatus getSessionCount(int32_t* out) override {
            *out = 1;
            return ndk::ScopedAStatus::ok();
        }

      private:
        const std::shared_ptr<NullSession> mSession;
    };

    static std::string name() { return std::string(vpp::IVppService::descriptor) + "/default"; }

    const std::shared_ptr<Factory> mFactory;
};

class NullClient final : public android::IQOZCallback {
  public:
    void onBufferDone(uint32_t, int32_t, uint32_t, uint64_t) override {}
    void onConfigChanged(std::set<uint32_t>) override {}
};

}  // namespace qoz::bench
