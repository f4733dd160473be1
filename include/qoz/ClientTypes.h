// SPDX-License-Identifier: Apache-2.0
/// @file
/// The records, constants and callbacks that a client exchanges with its VppComponent.
#pragma once

#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

#include <cstdint>
#include <optional>
#include <set>

namespace android {

/// The results of VppComponent::process().
struct QOZResult {
    static constexpr int32_t kTaken = 0;  ///< taken; see onBufferDone() and kNoSlot for its return
    static constexpr int32_t kRefused = 1;  ///< refused or failed; the log has errors and warnings
    static constexpr int32_t kNothingGiven = 2;  ///< no source and no output buffer given
};

/// The values of `port` in IQOZCallback::onBufferDone().
struct QOZPort {
    static constexpr uint32_t kOutput = 0;  ///< output buffer, target, or unconverted source
    static constexpr uint32_t kSource = 1;  ///< a source frame that has been converted
};

/// The values of ConfigParams::mode.
struct QOZMode {
    static constexpr uint32_t kFrcOnly = 0;     ///< frame-rate conversion; also any value above 2
    static constexpr uint32_t kFrc = 1;         ///< frame-rate conversion with optional upscaling
    static constexpr uint32_t kDoubleSize = 2;  ///< twice the source size, no frame-rate conversion
};

/// The values of ConfigParams::upscaleIndex.
struct QOZUpscale {
    static constexpr uint32_t k1x = 0;    ///< the size of the source
    static constexpr uint32_t k1_5x = 1;  ///< 1.5 times the source size, rounded up to even sides
    static constexpr uint32_t k2x = 2;    ///< twice the source size, rounded up to even sides
};

/// What has changed: the codes that IQOZCallback::onConfigChanged() reports.
struct QOZChange {
    static constexpr uint32_t kOutBufReqs = 0;  ///< number of output buffers per frame
    static constexpr uint32_t kUpscale = 4;     ///< upscale ratio, and with it the output size
};

/// Pixel formats, with the numbers that graphic buffers use.
struct QOZFormat {
    static constexpr uint32_t kRgba8888 = 1;            ///< bytes R, G, B, A
    static constexpr uint32_t kRgbx8888 = 2;            ///< the same, A ignored
    static constexpr uint32_t kVendorRgb = 277;         ///< the vendor's RGB format
    static constexpr uint32_t kVendorYuv = 0x7FA30C04;  ///< the vendor's YUV format
    static constexpr uint32_t kNv12Vemo = 0x7FA30C06;   ///< compressed NV12; the VPP takes this
};

/// The settings of a stream. They are passed to VppComponent::config(), or attached to a source
/// frame to change the stream from the next frame on.
struct ConfigParams {
    uint32_t mode = QOZMode::kFrcOnly;  ///< see QOZMode
    uint32_t reserved = 0;              ///< not read
    /// A value of n multiplies the frame rate by n + 1; valid values are 0 to 3. config() replaces
    /// a larger value with 1. A larger value carried by a frame is passed on unchanged.
    uint32_t interpFactor = 0;
    /// See QOZUpscale. config() reads it only with QOZMode::kFrc, and takes k1x to mean "keep the
    /// current ratio": after 1.5x or 2x, only settings carried by a frame return the stream to 1x.
    uint32_t upscaleIndex = QOZUpscale::k1x;
};

/// One buffer that the client passes to the component. A source frame uses every member; a
/// conversion target and an output buffer use only `slot` and `buffer`.
///
/// An output buffer must have VppComponent::expectedOutputWidth() x expectedOutputHeight() pixels.
/// It receives NV12: a plane of luma rows, then a plane of interleaved U and V at half the size in
/// both directions, rounded up. The device's allocator determines row pitch and modifiers from the
/// buffer's format and usage. Allocate it with QOZFormat::kNv12Vemo and a usage that lets the VPP
/// write (the component's own buffers have 0x300). The alpha channel of a source is ignored.
struct QOZBufferInfo {
    static constexpr int32_t kNoSlot = -1;       ///< marks a buffer without a slot; see `slot`
    static constexpr int32_t kOutputSlots = 64;  ///< output buffers must have slots from 0 to 63

    /// The client's number for the buffer, which IQOZCallback::onBufferDone() reports. A
    /// single-entry source packet with kNoSlot is a dummy frame: it sets the converter up and is
    /// never returned. A source with kNoSlot beside a conversion target is converted, but not
    /// returned; if it is NV12 and needs no conversion, it is lost, and the target is returned.
    int32_t slot = 0;
    sp<GraphicBuffer> buffer;  ///< the pixels; must not be null
    sp<Fence> fence;  ///< acquire fence of a source frame; null or invalid if the pixels are ready
    int64_t timestamp = 0;               ///< presentation time of a source frame, nanoseconds
    std::optional<ConfigParams> config;  ///< of a source frame: settings for the next frames
};

/// The interface that the client implements. The component calls it on the client's own thread
/// (from within process(), flushsync() or disable()), on binder threads and on its output worker,
/// possibly at the same time. The callbacks must return without waiting for the component.
///
/// From within a callback the client may use the getters, dump(), GetFormat(),
/// calculateOutBufferReqsPerFrame(), and process() with an output buffer. Every other operation of
/// the same component is refused at once, with a message. From within a callback, process() also
/// refuses an output buffer while a flush or a start is in progress: it returns QOZResult::kRefused
/// and the buffer stays with the client. The object must outlive the component.
class IQOZCallback {
  public:
    /// Returns a buffer to the client. `port`: see QOZPort. `slot`: the slot that the client gave
    /// the buffer. `valid`: 1 for a converted source and for an output buffer that holds a frame,
    /// else 0. `timestamp`: for an output buffer with a frame, the frame's time in microseconds on
    /// the clock of the sources; otherwise undefined.
    ///
    /// After a flush, until the next config(), and after a config() that turns motion vectors on,
    /// the client has the newest source back although the motion vectors of the next frame are
    /// measured against it. Pixels that the client draws into it before that frame has been
    /// processed spoil those vectors, and nothing else.
    virtual void onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) = 0;

    /// Reports that settings carried by a source frame are in force. `changes`: codes of QOZChange;
    /// empty if the interpolation factor has changed but not the number of output buffers. Called
    /// from within process(), after the frame has been queued.
    virtual void onConfigChanged(std::set<uint32_t> changes) = 0;

  protected:
    ~IQOZCallback() = default;  ///< objects are never deleted through this interface
};

}  // namespace android

/// A request from the frame path to a pool of internal buffers.
struct RequestInfo {
    bool needed = false;  ///< if false, the other members are not read
    uint32_t width = 0;   ///< pixels
    uint32_t height = 0;  ///< pixels
    uint32_t format = 0;  ///< pixel format of the graphic buffer
    uint32_t usage = 0;   ///< graphic-buffer usage bits
};
