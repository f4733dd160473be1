// SPDX-License-Identifier: Apache-2.0
/// @file
/// What crosses the boundary between a client and its VppComponent: records, numbers, callbacks.
#pragma once

#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

#include <cstdint>
#include <optional>
#include <set>

namespace android {

/// What VppComponent::process() answers.
struct QOZResult {
    static constexpr int32_t kTaken = 0;    ///< comes back through IQOZCallback::onBufferDone()
    static constexpr int32_t kRefused = 1;  ///< refused or failed; the reason is in the log
    static constexpr int32_t kNothingGiven = 2;  ///< neither a source nor an output buffer
};

/// The `port` of IQOZCallback::onBufferDone().
struct QOZPort {
    static constexpr uint32_t kOutput = 0;  ///< an output buffer or a conversion target
    static constexpr uint32_t kSource = 1;  ///< a source frame
};

/// ConfigParams::mode.
struct QOZMode {
    static constexpr uint32_t kFrcOnly = 0;     ///< frame-rate conversion; so is any number above 2
    static constexpr uint32_t kFrc = 1;         ///< frame-rate conversion with optional upscaling
    static constexpr uint32_t kDoubleSize = 2;  ///< twice the source size, no frame-rate conversion
};

/// ConfigParams::upscaleIndex.
struct QOZUpscale {
    static constexpr uint32_t k1x = 0;    ///< the size of the source
    static constexpr uint32_t k1_5x = 1;  ///< rounded up to even sides
    static constexpr uint32_t k2x = 2;    ///< twice the size
};

/// The codes of IQOZCallback::onConfigChanged().
struct QOZChange {
    static constexpr uint32_t kOutBufReqs = 0;  ///< another number of output buffers for a frame
    static constexpr uint32_t kUpscale = 4;     ///< another upscale ratio, so another output size
};

/// Pixel formats, as graphic buffers number them.
struct QOZFormat {
    static constexpr uint32_t kRgba8888 = 1;            ///< bytes R, G, B, A
    static constexpr uint32_t kRgbx8888 = 2;            ///< the same, A ignored
    static constexpr uint32_t kVendorRgb = 277;         ///< the vendor's RGB format
    static constexpr uint32_t kVendorYuv = 0x7FA30C04;  ///< the vendor's YUV format
    static constexpr uint32_t kNv12Vemo = 0x7FA30C06;   ///< compressed NV12: what the VPP is given
};

/// Settings of a stream. Given to VppComponent::config(), or carried by a source frame to change
/// the stream from the next frame on.
struct ConfigParams {
    uint32_t mode = QOZMode::kFrcOnly;  ///< see QOZMode
    uint32_t reserved = 0;              ///< not read
    /// n: (n + 1)x frame rate, 0 to 3. config() takes a larger one as 1; a frame's is not changed.
    uint32_t interpFactor = 0;
    /// See QOZUpscale; read with QOZMode::kFrc. VppComponent::config() takes 1x as "keep the
    /// ratio": after 1.5x or 2x only settings that a frame carries go back to 1x.
    uint32_t upscaleIndex = QOZUpscale::k1x;
};

/// One buffer handed over by the client. A source frame uses every member, a conversion target and
/// an output buffer use `slot` and `buffer`.
///
/// An output buffer has VppComponent::expectedOutputWidth() x expectedOutputHeight() pixels and
/// receives NV12: a plane of luma rows, then a plane of interleaved U and V at half the size in
/// both directions, rounded up. Row pitch and modifiers are those that its own format and usage
/// have with the device's allocator; allocate it with QOZFormat::kNv12Vemo and a usage that the VPP
/// may write (0x300 is what the component's own buffers have). The alpha of a source is ignored.
struct QOZBufferInfo {
    static constexpr int32_t kNoSlot = -1;       ///< see slot
    static constexpr int32_t kOutputSlots = 64;  ///< output buffers have slots below this

    /// The client's own number for the buffer; it comes back in IQOZCallback::onBufferDone().
    /// kNoSlot on a source that comes alone marks a dummy frame, which sets the converter up and
    /// never comes back. A source that has a target beside it is converted whatever its slot, but
    /// kNoSlot never comes back either.
    int32_t slot = 0;
    sp<GraphicBuffer> buffer;  ///< the pixels; never null
    sp<Fence> fence;           ///< acquire fence of a source frame; null or invalid: ready now
    int64_t timestamp = 0;     ///< presentation time of a source frame, nanoseconds
    std::optional<ConfigParams> config;  ///< of a source frame: settings from the next frame on
};

/// Implemented by the client. Its operations are called on the client's own thread (from within
/// process() or flushsync()), on binder threads and on the component's output worker, also at the
/// same time. They return without waiting for the component.
///
/// From within them the client may use the getters, dump(), GetFormat(), and process() with an
/// output buffer; every other operation of the same component is refused at once with a message.
/// While a flush or a start is under way process() refuses an output buffer, too: the result is
/// QOZResult::kRefused and the buffer is still the client's. The object outlives the component.
class IQOZCallback {
  public:
    /// A buffer is the client's again. `port`: see QOZPort. `valid`: 1 for a source that has been
    /// converted and for an output buffer that holds a frame, else 0. `timestamp`: of the frame in
    /// an output buffer, in microseconds on the clock of the sources; without a frame it means
    /// nothing.
    virtual void onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) = 0;

    /// Settings carried by a source frame are in force; see QOZChange. A change of the
    /// interpolation factor alone comes with an empty set. Called within process(), after the frame
    /// was queued.
    virtual void onConfigChanged(std::set<uint32_t> changes) = 0;

  protected:
    ~IQOZCallback() = default;  ///< never deleted through this interface
};

}  // namespace android

/// What the frame path asks of the pools of internal buffers.
struct RequestInfo {
    bool needed = false;  ///< else the rest is not read
    uint32_t width = 0;   ///< pixels
    uint32_t height = 0;  ///< pixels
    uint32_t format = 0;  ///< pixel format of the graphic buffer
    uint32_t usage = 0;   ///< graphic-buffer usage bits
};
