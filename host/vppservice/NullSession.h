// SPDX-License-Identifier: Apache-2.0
// A session that accepts every operation and does nothing. Benches use it to measure the cost
// without a service, and tests derive simple sessions from it.
#pragma once

#include <host/vppservice/VppSessionBase.h>

#include <memory>
#include <utility>
#include <vector>

namespace qoz::host {

class NullSession : public host::VppSessionBase {
  public:
    std::shared_ptr<aidl::vendor::vuq::hardware::vpp::IVppCallbacks> callbacks;

    Status close(Error*) override { return Status::ok(); }
    Status drain(Error*) override { return Status::ok(); }
    Status flush(Port, Error*) override { return Status::ok(); }
    Status initSession(
        int32_t, const std::shared_ptr<aidl::vendor::vuq::hardware::vpp::IVppCallbacks>& object,
        Error*) override {
        callbacks = object;
        return Status::ok();
    }
    Status open(Error*) override { return Status::ok(); }
    Status queueBuf(Port, const aidl::vendor::vuq::hardware::vpp::VppBuffer&, Error*) override {
        return Status::ok();
    }
    Status reconfigure(const PortParam&, const PortParam&, Error*) override { return Status::ok(); }
    Status setCtrlAis(const aidl::vendor::vuq::hardware::vpp::VppCtrlAis&, Error*) override {
        return Status::ok();
    }
    Status setCtrlFrc(const std::vector<aidl::vendor::vuq::hardware::vpp::VppCtrlFrcSegment>&,
                      Error*) override {
        return Status::ok();
    }
    Status setCtrlVppMode(int32_t, Error*) override { return Status::ok(); }
    Status setParameter(Port, const PortParam&, Error*) override { return Status::ok(); }
    Status terminateSession() override {
        const auto dropped = std::move(callbacks);
        return Status::ok();
    }
};

}  // namespace qoz::host
