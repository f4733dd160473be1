// SPDX-License-Identifier: Apache-2.0
// Conversion of the interface package's records to and from their form on the bus.
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

// Converts a buffer and duplicates its descriptors. Throws std::system_error if a descriptor cannot
// be duplicated, because it is not open or because no descriptor is left.
BusBuffer toBus(const vpp::VppBuffer& buffer);
BusPort toBus(const vpp::VppPortParam& param);
BusAis toBus(const vpp::VppCtrlAis& control);
std::vector<BusSegment> toBus(const std::vector<vpp::VppCtrlFrcSegment>& segments);

// Returns the number of descriptors in all handles of the record.
uint64_t descriptorsIn(const BusBuffer& buffer);

// Takes the descriptors out of the record and sets their close-on-exec flag. Returns nullopt if a
// list or a name is longer than its limit, a descriptor is not valid, or a filled length exceeds
// its allocated length. The session checks all other numbers.
std::optional<vpp::VppBuffer> fromBus(BusBuffer&& buffer);
vpp::VppPortParam fromBus(const BusPort& param);
std::optional<vpp::VppCtrlAis> fromBus(const BusAis& control);
std::optional<std::vector<vpp::VppCtrlFrcSegment>> fromBus(const std::vector<BusSegment>& segments);

}  // namespace qoz::host::vppd
