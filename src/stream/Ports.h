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
// the output port from the input port and the settings. Used by the thread that runs the stream
// (see StreamSettings). Threads that queue output buffers also read two members: the expected
// output size, which changes only while the gate for output buffers is closed, and the format of
// the input port, which is accessed atomically.
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

    // Sets the size (pixels) and pixel format of the following sources. Changes neither port.
    void setSource(uint32_t width, uint32_t height, uint32_t format);
    // Return true if the sources have exactly this size and format, or exactly this size.
    bool isSource(uint32_t width, uint32_t height, uint32_t format) const;
    bool isSourceSize(uint32_t width, uint32_t height) const;
    uint32_t sourceWidth() const { return m.width; }
    uint32_t sourceHeight() const { return m.height; }
    uint32_t sourceFormat() const { return m.format; }

    // Computes both ports for the source and publishes them to the getters.
    void resolve();
    // Publishes the ports that resolve() will compute to the getters, without changing the ports.
    void announce();
    // Publishes the ports as they are.
    void publish();

    // Returns true if the source exceeds the device's limits, so that the converter scales it down
    // to the size of the input port.
    bool downscalesSource() const { return m.needDownscaleResult; }
    uint32_t inputWidth() const { return m.inPortWidth; }
    uint32_t inputHeight() const { return m.inPortHeight; }
    uint32_t outputWidth() const { return m.expectedOutWidth; }
    uint32_t outputHeight() const { return m.expectedOutHeight; }
    bool isOutputSize(uint32_t width, uint32_t height) const;

    // The pixel format of the input port; 0 until a start or the first output buffer sets it. May
    // be called from any thread, because any thread may queue output buffers.
    uint32_t inputFormat() const { return __atomic_load_n(&m.inputFormat, __ATOMIC_RELAXED); }
    void setInputFormat(uint32_t format) {
        __atomic_store_n(&m.inputFormat, format, __ATOMIC_RELAXED);
    }

    // Fills in a port record for frames of this size in pixels. Rows have no padding on either
    // port.
    static void fill(PortParam* port, uint32_t width, uint32_t height, int32_t colorFormat);
    // Fills in a port record for a reconfiguration. Derives the colour code from the pixel format
    // and logs the size.
    void create(PortParam* port, uint32_t width, uint32_t height, uint32_t format) const;

  private:
    // The sizes of both ports for one source size, in pixels.
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
