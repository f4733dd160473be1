// SPDX-License-Identifier: Apache-2.0
// Short names for the types of the interface package.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/IVpp.h>
#include <src/vpp/RecordFields.h>

namespace qoz::host::vppservice {

namespace vpp = ::aidl::vendor::vuq::hardware::vpp;

// Read and write the numbers of records. The interface package may declare them signed or unsigned.
using android::setUnsigned;
using android::unsignedOf;

using vpp::VppBuffer;
using vpp::VppError;
using vpp::VppPort;
using vpp::VppPortParam;

}  // namespace qoz::host::vppservice
