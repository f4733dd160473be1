// SPDX-License-Identifier: Apache-2.0
// The records of the interface package, and what they are on the bus.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/IVpp.h>
#include <sdbus-c++/sdbus-c++.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qoz::host::vppd {

namespace vpp = ::aidl::vendor::vuq::hardware::vpp;

using BusHandle = sdbus::Struct<std::vector<sdbus::UnixFd>, std::vector<int32_t>>;
using BusMeta = sdbus::Struct<std::string, BusHandle, uint32_t, uint32_t, uint32_t, uint32_t,
                              uint32_t, uint32_t>;
using BusBuffer =
    sdbus::Struct<BusHandle, uint32_t, uint32_t, uint32_t, uint32_t, BusHandle, uint32_t, uint32_t,
                  uint32_t, uint32_t, std::vector<BusMeta>, uint32_t, uint64_t, uint64_t, int64_t>;
using BusPort = sdbus::Struct<int32_t, int32_t, int32_t, int32_t, int32_t>;
using BusSegment = sdbus::Struct<int32_t, int32_t, int32_t, int64_t, bool, bool, int32_t, int32_t,
                                 int32_t, int32_t>;
using BusAis = sdbus::Struct<int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t,
                             std::vector<sdbus::Struct<std::string, int32_t>>>;

// Descriptors are duplicated. Throws std::system_error when there are none left, or when one that
// is to be sent is none.
BusBuffer toBus(const vpp::VppBuffer& buffer);
BusPort toBus(const vpp::VppPortParam& param);
BusAis toBus(const vpp::VppCtrlAis& control);
std::vector<BusSegment> toBus(const std::vector<vpp::VppCtrlFrcSegment>& segments);

// In all of the record's handles.
uint64_t descriptorsIn(const BusBuffer& buffer);

// Descriptors are taken over; those of the result are closed on exec. None when a list or a name is
// longer than any that makes sense, or when a length cannot be true; whether the numbers make sense
// together is for the session to judge.
std::optional<vpp::VppBuffer> fromBus(BusBuffer&& buffer);
vpp::VppPortParam fromBus(const BusPort& param);
std::optional<vpp::VppCtrlAis> fromBus(const BusAis& control);
std::optional<std::vector<vpp::VppCtrlFrcSegment>> fromBus(const std::vector<BusSegment>& segments);

}  // namespace qoz::host::vppd
