// A VPP service that takes everything and does nothing, and a client that owns nothing.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/BnVppService.h>
#include <host/platform/ServiceRegistry.h>
#include <host/vppservice/VppSessionBase.h>
#include <qoz/VppComponent.h>

#include <memory>
#include <string>

namespace qoz::bench {

namespace vpp = ::aidl::vendor::vuq::hardware::vpp;

class NullSession : public host::VppSessionBase {
  public:
    std::shared_ptr<vpp::IVppCallbacks> callbacks;

    Status close(Error*) override { return Status::ok(); }
    Status drain(Error*) override { return Status::ok(); }
    Status flush(Port, Error*) override { return Status::ok(); }
    Status initSession(int32_t, const std::shared_ptr<vpp::IVppCallbacks>& object,
                       Error*) override {
        callbacks = object;
        return Status::ok();
    }
    Status open(Error*) override { return Status::ok(); }
    Status queueBuf(Port, const vpp::VppBuffer&, Error*) override { return Status::ok(); }
    Status reconfigure(const PortParam&, const PortParam&, Error*) override { return Status::ok(); }
    Status setCtrlAis(const vpp::VppCtrlAis&, Error*) override { return Status::ok(); }
    Status setCtrlFrc(const std::vector<vpp::VppCtrlFrcSegment>&, Error*) override {
        return Status::ok();
    }
    Status setCtrlVppMode(int32_t, Error*) override { return Status::ok(); }
    Status setParameter(Port, const PortParam&, Error*) override { return Status::ok(); }
    Status terminateSession() override {
        const auto dropped = std::move(callbacks);
        return Status::ok();
    }
};

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
