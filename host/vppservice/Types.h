// SPDX-License-Identifier: Apache-2.0
// Names of the interface package as this module uses them.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/IVpp.h>
#include <src/vpp/RecordFields.h>

namespace qoz::host::vppservice {

namespace vpp = ::aidl::vendor::vuq::hardware::vpp;

// Numbers in records, whatever the sign that their declaration has.
using android::setUnsigned;
using android::unsignedOf;

using vpp::VppBuffer;
using vpp::VppError;
using vpp::VppPort;
using vpp::VppPortParam;

}  // namespace qoz::host::vppservice
