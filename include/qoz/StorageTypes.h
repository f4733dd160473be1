// SPDX-License-Identifier: Apache-2.0
/// @file
/// What the layout of VppComponent needs to know of the platform and of the service's package. Of
/// no use to a client by itself.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/VppBuffer.h>
#include <aidl/vendor/vuq/hardware/vpp/VppCtrlFrcSegment.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

#include <tuple>

namespace aidl::vendor::vuq::hardware::vpp {
class FlushDone;
class IVpp;
class IVppService;
class ReconfigDone;
class VppPortParam;
}  // namespace aidl::vendor::vuq::hardware::vpp

namespace android {

class GraphicBufferMapper;
class Rgb2Yuv;

namespace vpp = ::aidl::vendor::vuq::hardware::vpp;

/// Of one frame: forward vectors, backward vectors, half-size copy; any may be null.
using SideBuffers = std::tuple<sp<GraphicBuffer>, sp<GraphicBuffer>, sp<GraphicBuffer>>;

}  // namespace android
