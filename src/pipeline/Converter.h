// SPDX-License-Identifier: Apache-2.0
// The converter of a component, and its reference frame. Private to src/.
#pragma once

#include <Rgb2Yuv.h>
#include <ui/GraphicBuffer.h>

#include <cstdint>

#include "base/Log.h"
#include "pipeline/SourceFrame.h"
#include "stream/Ports.h"

namespace android {

// Creates the converter on first use, and reconfigures it whenever the source size, the source
// format or the expected output size differs from the last configuration. Used only by the client's
// thread.
class Converter {
  public:
    struct Members {
        Rgb2Yuv*& converter;  // owned; deleted by destroy()
        sp<GraphicBuffer>& previousSource;
        bool& isFirstFrame;
        uint32_t& dumpFrameCount;
        const bool& dumpEnable;
        const bool& dumpMvEnable;
    };

    Converter(const Members& members, const Ports& ports, const SessionLog& log)
        : m(members), mPorts(ports), mLog(log) {}

    // Returns whether the session has a converter; its first frame or dummy frame creates it.
    bool exists() const { return m.converter != nullptr; }

    // Configures the converter for `source`. Creates it if there is none and then drops the
    // reference frame, which belongs to the previous session. Throws std::bad_alloc.
    void configure(sp<GraphicBuffer>& source);

    // Configures the converter for `frame` if necessary, and sets `frame.fresh` if no earlier frame
    // can be its reference. `frame.sizeChanged` must have been set.
    void setUp(SourceFrame& frame);

    // Sets the size in pixels of one vector buffer. Returns false if there are to be no vectors.
    bool vectorSize(uint32_t& width, uint32_t& height);

    // Fills the frame's target and side buffers. `motion` tells the converter whether the frame
    // takes part in motion estimation. Returns whether the conversion succeeded.
    bool convert(SourceFrame& frame, bool motion);

    // Makes a frame that has been queued the reference of the next one.
    void adoptReference(const SourceFrame& frame);

    // Makes the next frame count as the first.
    void startAnew() { m.isFirstFrame = true; }

    // Makes the converter release its graphics-processor resources; it creates them again for the
    // next frame.
    void releaseResources();
    void destroy();

  private:
    // The properties that the converter is configured for.
    struct Shape {
        uint32_t width = 0;
        uint32_t height = 0;
        uint32_t format = 0;
        uint32_t outWidth = 0;
        uint32_t outHeight = 0;
        bool operator==(const Shape& other) const;
    };
    // Returns the configuration needed for this source with the current ports.
    Shape shapeFor(const sp<GraphicBuffer>& source) const;
    // Configures the converter itself. Returns false if it refuses.
    bool accepts(sp<GraphicBuffer>& source);
    bool hasReferenceFor(const SourceFrame& frame) const;
    void dump(SourceFrame& frame);

    const Members m;
    const Ports& mPorts;
    const SessionLog& mLog;
    Shape mConfigured;
};

}  // namespace android
