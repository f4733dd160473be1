#pragma once

#include <cstdint>

namespace aidl::vendor::vuq::hardware::vpp {

enum class VppPort : int32_t {
    INPUT = 0,   // frames going into the VPP
    OUTPUT = 1,  // buffers the VPP fills
};

}  // namespace aidl::vendor::vuq::hardware::vpp
