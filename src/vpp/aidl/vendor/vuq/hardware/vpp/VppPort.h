// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace aidl::vendor::vuq::hardware::vpp {

// The two ports of a session.
enum class VppPort : int32_t {
    INPUT = 0,   // receives frames to process
    OUTPUT = 1,  // receives buffers to fill
};

[[nodiscard]] inline std::string toString(VppPort value) {
    switch (value) {
        case VppPort::INPUT:
            return "INPUT";
        case VppPort::OUTPUT:
            return "OUTPUT";
    }
    return std::to_string(static_cast<int32_t>(value));
}

}  // namespace aidl::vendor::vuq::hardware::vpp
