// SPDX-License-Identifier: Apache-2.0
// The base of all sessions. It refuses the operations that the library and the tools never call; a
// derived class implements the others.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/BnVpp.h>

namespace qoz::host {

class VppSessionBase : public aidl::vendor::vuq::hardware::vpp::BnVpp {
  protected:
    using Status = ndk::ScopedAStatus;
    using Error = aidl::vendor::vuq::hardware::vpp::VppError;
    using Port = aidl::vendor::vuq::hardware::vpp::VppPort;
    using PortParam = aidl::vendor::vuq::hardware::vpp::VppPortParam;

  public:
    Status getParameter(Port, PortParam*, Error* result) override { return refuse(result); }
    Status resetStatistics(Error* result) override { return refuse(result); }
    Status setCtrlBrightness(int32_t, Error* result) override { return refuse(result); }
    Status setCtrlColor(int32_t, Error* result) override { return refuse(result); }
    Status setCtrlContrast(int32_t, Error* result) override { return refuse(result); }
    Status setCtrlDenoise(int32_t, Error* result) override { return refuse(result); }
    Status setCtrlHue(int32_t, Error* result) override { return refuse(result); }
    Status setCtrlSaturation(int32_t, Error* result) override { return refuse(result); }
    Status setCtrlSharpness(int32_t, Error* result) override { return refuse(result); }
    Status setCtrlToneMap(int32_t, Error* result) override { return refuse(result); }
    Status setPriority(int32_t, Error* result) override { return refuse(result); }
    Status setQuality(int32_t, Error* result) override { return refuse(result); }
    Status setStatistics(int32_t, Error* result) override { return refuse(result); }
    Status suspend(Error* result) override { return refuse(result); }

  private:
    static Status refuse(Error* result) {
        if (result != nullptr) *result = Error::VPP_ERR_INVALID_CFG;
        return Status::ok();
    }
};

}  // namespace qoz::host
