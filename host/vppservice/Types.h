// Names of the interface package as this room uses them.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/IVpp.h>

namespace qoz::host::vppservice {

namespace vpp = ::aidl::vendor::vuq::hardware::vpp;

using vpp::VppBuffer;
using vpp::VppError;
using vpp::VppPort;
using vpp::VppPortParam;

}  // namespace qoz::host::vppservice
