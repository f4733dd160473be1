/// @file
/// What crosses the boundary between a client and its VppComponent.
#pragma once

#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

#include <cstdint>
#include <optional>
#include <set>

namespace android {

/// Settings of a stream. Given to VppComponent::config(), or carried by a source frame to change
/// the stream from the next frame on.
struct ConfigParams {
    /// 1: frame-rate conversion with optional upscaling. 2: upscaling to twice the source size and
    /// no frame-rate conversion. Any other value: frame-rate conversion without upscaling.
    uint32_t mode;
    uint32_t reserved;      ///< not read
    uint32_t interpFactor;  ///< n: (n + 1)x frame rate, 0 to 3; config() takes a larger one as 1
    uint32_t upscaleIndex;  ///< with mode 1: 0 = 1x, 1 = 1.5x, 2 = 2x
};

/// One buffer handed over by the client. A source frame uses every member, a conversion target and
/// an output buffer use `slot` and `buffer`.
struct QOZBufferInfo {
    /// The client's own number for the buffer; it comes back in IQOZCallback::onBufferDone().
    /// Output buffers have slots from 0 to 63. -1 on a source marks a dummy frame, which sets the
    /// converter up and never comes back.
    int32_t slot = 0;
    sp<GraphicBuffer> buffer;  ///< the pixels; never null
    sp<Fence> fence;           ///< acquire fence of a source frame; null or invalid: ready now
    int64_t timestamp = 0;     ///< presentation time of a source frame, nanoseconds
    std::optional<ConfigParams> config;  ///< of a source frame: settings from the next frame on
};

/// Implemented by the client. Its two operations are called on the client's own thread (from within
/// process() or flushsync()), on binder threads and on the component's output worker, also at the
/// same time: they return without waiting for the component and call none of its operations but the
/// getters and dump(), since the others may be waiting for the callback themselves. The object
/// outlives the component.
class IQOZCallback {
  public:
    /// A buffer is the client's again. `port`: 1 for a source, 0 for an output buffer or a
    /// conversion target. `valid`: 1 for a source that has been converted and for an output buffer
    /// that holds a frame, else 0. `timestamp`: of the frame in an output buffer, in microseconds
    /// on the clock of the sources; without a frame it means nothing.
    virtual void onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) = 0;

    /// Settings carried by a source frame are in force. Codes: 0, the number of output buffers to
    /// lend for each frame changed; 4, the upscale ratio and with it the output size changed. A
    /// change of the interpolation factor alone comes with an empty set.
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
