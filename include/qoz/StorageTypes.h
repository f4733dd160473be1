// SPDX-License-Identifier: Apache-2.0
/// @file
/// Brings the declarations that the layout of VppComponent needs: from the standard library, from
/// the platform and from the service's interface package. A client has no use for it by itself.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/VppBuffer.h>
#include <aidl/vendor/vuq/hardware/vpp/VppCtrlFrcSegment.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <list>
#include <mutex>
#include <thread>
#include <tuple>
#include <unordered_map>

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

/// The side buffers of one frame: forward vectors, backward vectors, half-size copy. Any may be
/// null.
using SideBuffers = std::tuple<sp<GraphicBuffer>, sp<GraphicBuffer>, sp<GraphicBuffer>>;

}  // namespace android
