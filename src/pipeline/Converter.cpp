// SPDX-License-Identifier: Apache-2.0
#include "pipeline/Converter.h"

#include <new>
#include <tuple>
#include <utility>

#include "stream/VppUtils.h"

namespace android {

bool Converter::Shape::operator==(const Shape& other) const {
    return std::tie(width, height, format, outWidth, outHeight) ==
           std::tie(other.width, other.height, other.format, other.outWidth, other.outHeight);
}

Converter::Shape Converter::shapeFor(const sp<GraphicBuffer>& source) const {
    Shape shape;
    shape.width = source->getWidth();
    shape.height = source->getHeight();
    shape.format = static_cast<uint32_t>(source->getPixelFormat());
    shape.outWidth = mPorts.outputWidth();
    shape.outHeight = mPorts.outputHeight();
    return shape;
}

// Creates the converter if there is none. It then also drops the reference frame, which belongs to
// the previous session and shows another scene.
void Converter::configure(sp<GraphicBuffer>& source) {
    if (m.converter == nullptr) {
        m.converter = new Rgb2Yuv();
        m.previousSource.clear();
    }
    mConfigured = accepts(source) ? shapeFor(source) : Shape{};  // the next frame tries again
}

// A lack of memory is a failure like any other: a change of settings must not stop half way.
bool Converter::accepts(sp<GraphicBuffer>& source) {
    try {
        return m.converter->Configure(source, mPorts.outputWidth(), mPorts.outputHeight());
    } catch (const std::bad_alloc&) {
        VPP_LOGE("processBuffer: out of memory, the converter is not configured");
        return false;
    }
}

// Reconfigures the converter whenever the frame differs in shape from the last configuration: a
// converter allocates for one shape and does not check the size of later frames.
void Converter::setUp(SourceFrame& frame) {
    const bool missing = !exists();
    frame.fresh = m.isFirstFrame || frame.sizeChanged || missing || !hasReferenceFor(frame);
    const bool resized = frame.sizeChanged && !m.isFirstFrame;
    if (!missing && !resized && mConfigured == shapeFor(frame.source)) return;
    VPP_LOGD("processBuffer: %s MotionEngine, isFirstFrame=%d, isBufferSizeChanged=%d",
             missing ? "Setup" : "Reconfigure", m.isFirstFrame ? 1 : 0, frame.sizeChanged ? 1 : 0);
    configure(frame.source);
}

// Returns whether the previous source can be the reference of this frame. After a frame of a new
// size has failed, the previous source still has the old size. Any RGB format can be the reference
// for any other.
bool Converter::hasReferenceFor(const SourceFrame& frame) const {
    const sp<GraphicBuffer>& previous = m.previousSource;
    return previous != nullptr && previous->getWidth() == frame.width &&
           previous->getHeight() == frame.height &&
           VppUtils::areAlike(static_cast<uint32_t>(previous->getPixelFormat()), frame.format());
}

bool Converter::vectorSize(uint32_t& width, uint32_t& height) {
    return m.converter->GetMVbufferSize(width, height);
}

// Converts the pixels first, because without them the frame cannot be queued; estimates motion only
// if that succeeded. The converter itself waits for the frame's fence.
bool Converter::convert(SourceFrame& frame, bool motion) {
    bool ok = m.converter->RGBToNV12(frame.source, frame.target, frame.downscaled, motion,
                                     std::move(frame.fence));
    if (frame.hasVectors()) {
        ok = ok && m.converter->MvBufferGeneration(m.previousSource, frame.source, frame.forward,
                                                   frame.backward);
    }
    if (m.dumpEnable) dump(frame);
    return ok;
}

// Dumps the frame even if the conversion failed, so that the failure can be examined.
void Converter::dump(SourceFrame& frame) {
    const auto write = [this](sp<GraphicBuffer>& buffer, const char* name, const char* label) {
        if (buffer != nullptr) m.converter->DumpBuffer(buffer, name, m.dumpFrameCount, label);
    };
    if (m.dumpMvEnable && frame.hasVectors()) {
        write(frame.forward, "FW_MV", "RGBA8888");
        write(frame.backward, "BW_MV", "RGBA8888");
    }
    write(frame.source, "Game_Source", "VEMO_RGBA8888");
    write(frame.target, "QOZ_Converted", "VEMO_NV12");
    write(frame.downscaled, "Downscaled", "VEMO_NV12");
    ++m.dumpFrameCount;
}

void Converter::adoptReference(const SourceFrame& frame) {
    m.previousSource = frame.source;
    m.isFirstFrame = false;
}

void Converter::releaseResources() {
    if (exists()) m.converter->clearOpenGLResources();
}

// Called when the session ends. The reference frame is kept until the next session's converter is
// created.
void Converter::destroy() {
    delete std::exchange(m.converter, nullptr);
}

}  // namespace android
