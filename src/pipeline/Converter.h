// SPDX-License-Identifier: Apache-2.0
// The converter of a component and its reference frame. Private to src/.
#pragma once

#include <Rgb2Yuv.h>
#include <ui/GraphicBuffer.h>

#include <cstdint>

#include "base/Log.h"
#include "pipeline/SourceFrame.h"
#include "stream/Ports.h"

namespace android {

// Makes the converter on first use, and has it configured for what it is given: whenever source
// size, source format or expected output size are not those of the last configuration. Belongs to
// the client's thread.
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

    // Made by the first frame, or a dummy, of a session.
    bool exists() const { return m.converter != nullptr; }

    // Makes the converter if there is none, which drops the reference frame: it is of the previous
    // session. Throws std::bad_alloc.
    void configure(sp<GraphicBuffer>& source);

    // Configures for a frame whose `sizeChanged` is known, where that is due, and decides whether
    // the frame is fresh: nothing before it can serve as its reference.
    void setUp(SourceFrame& frame);

    // The size in pixels of one vector buffer; false when there are to be none.
    bool vectorSize(uint32_t& width, uint32_t& height);

    // Fills the frame's target and side buffers. `motion`: the frame takes part in motion
    // estimation.
    bool convert(SourceFrame& frame, bool motion);

    // The frame has been queued: it is the reference of the next one.
    void adoptReference(const SourceFrame& frame);

    // The next frame counts as the first.
    void startAnew() { m.isFirstFrame = true; }

    // Has the converter let go of what it holds on the graphics processor; the next frame makes it
    // anew.
    void releaseResources();
    void destroy();

  private:
    // What the converter has been configured for.
    struct Shape {
        uint32_t width = 0;
        uint32_t height = 0;
        uint32_t format = 0;
        uint32_t outWidth = 0;
        uint32_t outHeight = 0;
        bool operator==(const Shape& other) const;
    };
    // What it would have to be configured for, with this source and the ports as they are.
    Shape shapeFor(const sp<GraphicBuffer>& source) const;
    bool hasReferenceFor(const SourceFrame& frame) const;
    void dump(SourceFrame& frame);

    const Members m;
    const Ports& mPorts;
    const SessionLog& mLog;
    Shape mConfigured;
};

}  // namespace android
