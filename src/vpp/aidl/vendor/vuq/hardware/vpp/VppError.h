// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace aidl::vendor::vuq::hardware::vpp {

// The result of an operation. Every value except VPP_OK is a failure. The library treats all
// failures alike.
enum class VppError : int32_t {
    VPP_OK = 0,
    VPP_ERR = 1,
    VPP_PENDING = 2,
    VPP_ERR_STATE = 3,
    VPP_ERR_INVALID_CFG = 4,
    VPP_ERR_PARAM = 5,
    VPP_ERR_NO_MEM = 6,
    VPP_ERR_RESOURCES = 7,
    VPP_ERR_HW = 8,
    VPP_ERR_FATAL = 9,
};

[[nodiscard]] inline std::string toString(VppError value) {
    switch (value) {
        case VppError::VPP_OK:
            return "VPP_OK";
        case VppError::VPP_ERR:
            return "VPP_ERR";
        case VppError::VPP_PENDING:
            return "VPP_PENDING";
        case VppError::VPP_ERR_STATE:
            return "VPP_ERR_STATE";
        case VppError::VPP_ERR_INVALID_CFG:
            return "VPP_ERR_INVALID_CFG";
        case VppError::VPP_ERR_PARAM:
            return "VPP_ERR_PARAM";
        case VppError::VPP_ERR_NO_MEM:
            return "VPP_ERR_NO_MEM";
        case VppError::VPP_ERR_RESOURCES:
            return "VPP_ERR_RESOURCES";
        case VppError::VPP_ERR_HW:
            return "VPP_ERR_HW";
        case VppError::VPP_ERR_FATAL:
            return "VPP_ERR_FATAL";
    }
    return std::to_string(static_cast<int32_t>(value));
}

}  // namespace aidl::vendor::vuq::hardware::vpp
