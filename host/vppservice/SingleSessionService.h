// SPDX-License-Identifier: Apache-2.0
// A VPP service for tests and benches that hands out a session which they provide.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/BnVppService.h>
#include <host/platform/ServiceRegistry.h>

#include <memory>
#include <string>
#include <utility>

namespace qoz::host {

// Is registered under the service's instance name from construction to destruction, except between
// unregister() and registerAgain().
template <typename Session>
class SingleSessionService {
  public:
    explicit SingleSessionService(
        std::shared_ptr<Session> session = ndk::SharedRefBase::make<Session>())
        : next(std::move(session)), mFactory(ndk::SharedRefBase::make<Factory>(*this)) {
        registerAgain();
    }
    ~SingleSessionService() { unregister(); }

    SingleSessionService(const SingleSessionService&) = delete;
    SingleSessionService& operator=(const SingleSessionService&) = delete;

    void unregister() { removeService(instance()); }
    void registerAgain() { addService(instance(), mFactory->asBinder()); }

    static std::string instance() { return defaultInstance<Vpp>(); }

    // The session that the next call gets; null if the service is to refuse one.
    std::shared_ptr<Session> next;

  private:
    using Vpp = aidl::vendor::vuq::hardware::vpp::IVppService;

    // The service object that clients call.
    class Factory : public aidl::vendor::vuq::hardware::vpp::BnVppService {
      public:
        explicit Factory(SingleSessionService& owner) : mOwner(owner) {}

        ndk::ScopedAStatus getNewVppSession(
            int32_t, std::shared_ptr<aidl::vendor::vuq::hardware::vpp::IVpp>* out) override {
            *out = mOwner.next;
            return ndk::ScopedAStatus::ok();
        }
        ndk::ScopedAStatus getSessionCount(int32_t* out) override {
            *out = 1;
            return ndk::ScopedAStatus::ok();
        }

      private:
        SingleSessionService& mOwner;
    };

    const std::shared_ptr<Factory> mFactory;
};

}  // namespace qoz::host
