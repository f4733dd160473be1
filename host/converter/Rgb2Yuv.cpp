// SPDX-License-Identifier: Apache-2.0
#include <Rgb2Yuv.h>
#include <android/log.h>
#include <host/control.h>
#include <host/converter/Dump.h>
#include <host/converter/FrameConverter.h>
#include <host/converter/MappedBuffer.h>
#include <host/converter/MotionEstimator.h>
#include <host/platform/Faults.h>

#include <optional>

namespace android {
namespace {

using qoz::host::FrameConverter;
using qoz::host::MappedBuffer;
using qoz::host::MotionEstimator;
using qoz::host::MotionVector;

// Limit for the wait until the source's fence signals, in milliseconds.
constexpr int kFenceWaitMs = 3000;

// Logs why an operation fails. Returns false, the result of the operation.
bool refuse(const char* operation, const char* reason) {
    __android_log_print(ANDROID_LOG_ERROR, "Rgb2Yuv", "%s: %s", operation, reason);
    return false;
}

// Returns whether an armed fault makes this call of the operation fail.
bool faulty(const char* operation) {
    return qoz::host::takeFault(operation) && !refuse(operation, "made to fail by an armed fault");
}

// Returns whether the buffer has the size of a motion field of `source`.
bool holdsFieldOf(const MappedBuffer& source, const MappedBuffer& vectors) {
    return !vectors.nv12() && vectors.width() == qoz::host::fieldPixels(source.width()) &&
           vectors.height() == qoz::host::fieldHeight(source.height());
}

MotionVector* vectorsOf(const MappedBuffer& buffer) {
    return reinterpret_cast<MotionVector*>(buffer.pixels());
}

}  // namespace

// The state of one converter. It is not locked: the interface leaves it to the caller to make one
// call at a time.
class Rgb2Yuv::Engine {
  public:
    // The parameters of Configure(). A frame that does not agree with them is refused, as on a
    // device, where the sizes of textures and targets are fixed by then.
    struct Setup {
        uint32_t width;
        uint32_t height;
        int32_t format;
        uint32_t outputWidth;
        uint32_t outputHeight;

        bool isFor(const GraphicBuffer& source) const {
            return source.getWidth() == width && source.getHeight() == height &&
                   source.getPixelFormat() == format;
        }
        bool hasHalfSize(const GraphicBuffer& copy) const {
            return copy.getWidth() == qoz::host::evenUp(outputWidth / 2) &&
                   copy.getHeight() == qoz::host::evenUp(outputHeight / 2);
        }
    };

    FrameConverter converter;
    MotionEstimator estimator;
    std::optional<Setup> setup;  // empty: not configured
    // These pointers are compared, but never followed.
    const GraphicBuffer* forMotion = nullptr;  // source of the last conversion, if it had `motion`
    const GraphicBuffer* measured = nullptr;   // current frame of the last estimate

    // Notes a conversion. A client that converts a buffer again has drawn a new frame in it, so the
    // estimator's luma of that buffer is out of date.
    void noteConversion(const sp<GraphicBuffer>& source, bool motion) {
        if (source.get() == measured) measured = nullptr;
        forMotion = motion ? source.get() : nullptr;
    }

    // Returns whether the frame can be the current one of an estimate: it was converted last, and
    // for motion. A device may keep what an estimate needs only then.
    bool isReady(const sp<GraphicBuffer>& current) const { return current.get() == forMotion; }

    // Returns whether the estimator still holds the luma of the previous frame, and notes the
    // current one. The order of conversions is the only sign that the pixels have not changed: the
    // previous frame must be the current one of the last estimate.
    bool knows(const sp<GraphicBuffer>& previous, const sp<GraphicBuffer>& current) {
        const bool known = previous.get() == measured;
        measured = current.get();
        return known;
    }

    void release() {
        measured = nullptr;
        converter.release();
        estimator.release();
    }
};

Rgb2Yuv::Rgb2Yuv() : mEngine(new Engine) {}

Rgb2Yuv::~Rgb2Yuv() {
    delete mEngine;
}

// Allocates the memory that conversions need, so that the first frame is as fast as the others.
bool Rgb2Yuv::Configure(sp<GraphicBuffer>& source, uint32_t width, uint32_t height) {
    constexpr char kOperation[] = "Configure";
    // If this configuration fails, there is none: the one before is discarded first.
    mEngine->setup.reset();
    if (faulty(kOperation)) return false;
    const auto pixels = MappedBuffer::map(source, kOperation, "source");
    if (!pixels) return false;
    if (width == 0 || height == 0) return refuse(kOperation, "the output has no pixels");

    mEngine->release();
    mEngine->setup = {pixels->width(), pixels->height(), source->getPixelFormat(), width, height};
    const bool scales = width != pixels->width() || height != pixels->height();
    if (scales && !pixels->nv12()) mEngine->converter.prepare(pixels->width(), pixels->height());
    return true;
}

// The buffers are checked before the wait for the fence. The half-size copy is made from the
// target, which is converted already.
bool Rgb2Yuv::RGBToNV12(
    sp<GraphicBuffer>& source, sp<GraphicBuffer>& target,
    // NOLINTNEXTLINE(performance-unnecessary-value-param): as the platform has it
    sp<GraphicBuffer>& downscaled, bool motion, sp<Fence> fence) {
    constexpr char kOperation[] = "RGBToNV12";
    const qoz::host::TraceSlice slice(kOperation);
    if (faulty(kOperation)) return false;
    const auto from = MappedBuffer::map(source, kOperation, "source");
    if (!from) return false;
    const auto to = MappedBuffer::map(target, kOperation, "target");
    if (!to) return false;
    std::optional<MappedBuffer> small;
    if (downscaled != nullptr) {
        small = MappedBuffer::map(downscaled, kOperation, "downscaled");
        if (!small) return false;
    }
    if (!to->nv12() || (small && !small->nv12())) return refuse(kOperation, "writes NV12 alone");
    if (!mEngine->setup || !mEngine->setup->isFor(*source)) {
        return refuse(kOperation, "not configured for sources of this size and format");
    }
    if (small && !mEngine->setup->hasHalfSize(*downscaled)) {
        return refuse(kOperation, "not configured for outputs of twice this downscaled size");
    }

    if (fence != nullptr && fence->isValid() && fence->wait(kFenceWaitMs) != NO_ERROR) {
        return refuse(kOperation, "the source's fence did not signal in time");
    }
    mEngine->noteConversion(source, motion);
    if (!mEngine->converter.convert(*from, to->picture()) ||
        (small && !FrameConverter::scale(to->picture(), small->picture()))) {
        return refuse(kOperation, "cannot scale between these sizes");
    }
    return true;
}

// Does not wait for fences: the caller converts a frame before it asks for its motion.
bool Rgb2Yuv::MvBufferGeneration(sp<GraphicBuffer>& previous, sp<GraphicBuffer>& current,
                                 sp<GraphicBuffer>& forward, sp<GraphicBuffer>& backward) {
    constexpr char kOperation[] = "MvBufferGeneration";
    const qoz::host::TraceSlice slice(kOperation);
    if (faulty(kOperation)) return false;
    const auto before = MappedBuffer::map(previous, kOperation, "previous");
    if (!before) return false;
    const auto now = MappedBuffer::map(current, kOperation, "current");
    if (!now) return false;
    const auto there = MappedBuffer::map(forward, kOperation, "forward");
    if (!there) return false;
    const auto back = MappedBuffer::map(backward, kOperation, "backward");
    if (!back) return false;
    if (!before->sameShape(*now)) return refuse(kOperation, "the frames differ in size or layout");
    if (!mEngine->setup || !mEngine->setup->isFor(*current)) {
        return refuse(kOperation, "not configured for sources of this size and format");
    }
    if (!holdsFieldOf(*now, *there) || !holdsFieldOf(*now, *back)) {
        return refuse(kOperation, "a vector buffer does not fit the frames");
    }
    if (!mEngine->isReady(current)) {
        return refuse(kOperation, "the current frame was not the last to be converted for motion");
    }
    mEngine->estimator.estimate(*before, *now, mEngine->knows(previous, current), vectorsOf(*there),
                                vectorsOf(*back));
    return true;
}

bool Rgb2Yuv::GetMVbufferSize(uint32_t& width, uint32_t& height) {
    constexpr char kOperation[] = "GetMVbufferSize";
    if (faulty(kOperation)) return false;
    if (!mEngine->setup) return refuse(kOperation, "not configured");
    width = qoz::host::fieldPixels(mEngine->setup->width);
    height = qoz::host::fieldHeight(mEngine->setup->height);
    return true;
}

// A failed dump is logged and does not disturb the frames.
void Rgb2Yuv::DumpBuffer(sp<GraphicBuffer>& buffer, const char* name, uint32_t frame,
                         const char* label) {
    constexpr char kOperation[] = "DumpBuffer";
    if (name == nullptr) {
        refuse(kOperation, "the picture has no name");
        return;
    }
    const auto pixels = MappedBuffer::map(buffer, kOperation, name);
    if (!pixels) return;
    const qoz::host::DumpResult result = qoz::host::dump(*pixels, name, frame);
    if (!result.error.empty()) {
        __android_log_print(ANDROID_LOG_ERROR, "Rgb2Yuv", "%s: cannot write %s: %s", kOperation,
                            result.path.c_str(), result.error.c_str());
        return;
    }
    __android_log_print(ANDROID_LOG_DEBUG, "Rgb2Yuv", "%s: %s (%s)", kOperation,
                        result.path.c_str(), label != nullptr ? label : "");
}

void Rgb2Yuv::clearOpenGLResources() {
    mEngine->release();
}

}  // namespace android
