// SPDX-License-Identifier: Apache-2.0
// Source size, port sizes and the port records of a stream. Private to src/.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/VppPortParam.h>

#include <cstdint>
#include <functional>

#include "base/Log.h"
#include "base/StreamFacts.h"
#include "stream/StreamSettings.h"

namespace android {

// Owns the rule that derives the input port from the source size and the limits of the device, and
// the output port from the input port and the settings. Belongs to the thread that runs the stream.
// The expected output size and the source format of the input port are also read by threads that
// queue output buffers: a gate keeps those out while they change.
class Ports {
  public:
    using PortParam = ::aidl::vendor::vuq::hardware::vpp::VppPortParam;
    using NeedDownscale = std::function<bool(uint32_t, uint32_t, uint32_t, uint32_t)>;

    struct Members {
        uint32_t& width;   // of the source
        uint32_t& height;  // of the source
        uint32_t& format;  // of the source
        uint32_t& inputFormat;
        uint32_t& inPortWidth;
        uint32_t& inPortHeight;
        uint32_t& expectedOutWidth;
        uint32_t& expectedOutHeight;
        uint32_t& maxWidth;
        uint32_t& maxHeight;
        NeedDownscale& needDownscale;
        bool& needDownscaleResult;
    };

    Ports(const Members& members, const StreamSettings& settings, const SessionLog& log,
          PublishedFacts& facts)
        : m(members), mSettings(settings), mLog(log), mFacts(facts) {}

    // Size in pixels and pixel format of the sources to come. Neither port is touched.
    void setSource(uint32_t width, uint32_t height, uint32_t format);
    // Whether the sources have just this size and format, or this size.
    bool isSource(uint32_t width, uint32_t height, uint32_t format) const;
    bool isSourceSize(uint32_t width, uint32_t height) const;
    uint32_t sourceWidth() const { return m.width; }
    uint32_t sourceHeight() const { return m.height; }
    uint32_t sourceFormat() const { return m.format; }

    // Computes both ports for the source, and has the getters answer for them.
    void resolve();
    // Has the getters answer for the ports that resolve() will compute.
    void announce();

    // Whether the source is larger than the device's limits, so that the converter makes it smaller
    // on its way to the input port.
    bool downscalesSource() const { return m.needDownscaleResult; }
    uint32_t inputWidth() const { return m.inPortWidth; }
    uint32_t inputHeight() const { return m.inPortHeight; }
    uint32_t outputWidth() const { return m.expectedOutWidth; }
    uint32_t outputHeight() const { return m.expectedOutHeight; }
    bool isOutputSize(uint32_t width, uint32_t height) const;

    // The pixel format of the input port; 0 until a start or a first output buffer has set it. Any
    // thread: output buffers are queued beside the thread that runs the stream.
    uint32_t inputFormat() const { return __atomic_load_n(&m.inputFormat, __ATOMIC_RELAXED); }
    void setInputFormat(uint32_t format) {
        __atomic_store_n(&m.inputFormat, format, __ATOMIC_RELAXED);
    }

    // Writes a port record for frames of this size (pixels). Rows have no padding on either port.
    static void fill(PortParam* port, uint32_t width, uint32_t height, int32_t colorFormat);
    // The same for a reconfiguration, which derives the colour code from the pixel format and says
    // the size in a message.
    void create(PortParam* port, uint32_t width, uint32_t height, uint32_t format) const;

  private:
    // Both ports of one source size; sides in pixels.
    struct Sizes {
        bool downscale;
        uint32_t inWidth;
        uint32_t inHeight;
        uint32_t outWidth;
        uint32_t outHeight;
    };
    Sizes sizesForSource() const;
    void publish(const Sizes& sizes);

    const Members m;
    const StreamSettings& mSettings;
    const SessionLog& mLog;
    PublishedFacts& mFacts;
};

}  // namespace android
