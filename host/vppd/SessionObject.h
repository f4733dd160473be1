// A session of the service, as an object on the bus.
#pragma once

#include "host/vppd/Bus.h"
#include "host/vppd/Records.h"
#include "host/vppservice/SerialExecutor.h"
#include "vppd/VppAdaptor.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace qoz::host::vppd {

// Exported from construction to destruction. Its calls are carried out one after the other, on a
// thread of its own.
class SessionObject final : private KeepsBus,
                            public sdbus::AdaptorInterfaces<::org::qoz::VppSession1_adaptor> {
  public:
    struct Hooks {
        std::function<void()> release;  // the client wants the object gone; called on the reader
        std::function<void()> look;     // something may have ended the service
    };

    // `client` is the unique name of who asked for the session.
    SessionObject(std::shared_ptr<Bus> connection, std::string path, std::string client,
                  std::shared_ptr<vpp::IVpp> session, Hooks hooks);

    // Closes and terminates the session; not on the reading thread.
    ~SessionObject();

    SessionObject(const SessionObject&) = delete;
    SessionObject& operator=(const SessionObject&) = delete;

    const std::string& client() const { return mClient; }

  private:
    using Answer = sdbus::Result<int32_t>;

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

    template <typename Call>
    void carryOut(Answer&& answer, Call call);

    const std::string mClient;
    const std::shared_ptr<vpp::IVpp> mSession;
    const Hooks mHooks;
    vppservice::SerialExecutor mExecutor;
};

}  // namespace qoz::host::vppd
