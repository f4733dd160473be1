// SPDX-License-Identifier: Apache-2.0
// The state of one source packet in the frame path. Private to src/.
#pragma once

#include <qoz/ClientTypes.h>

#include <cstdint>
#include <optional>

#include "base/BoundedWait.h"
#include "pipeline/SideBufferPool.h"

namespace android {

// Created from the packet's first entry when process() takes it, and filled by the steps of
// FrameIntake. Used only by the client's thread, for the duration of one process(). Its buffers are
// then owned by the pools or by the converter as reference frame.
struct SourceFrame {
    SourceFrame(const QOZBufferInfo& entry, WaitBudget& operationWaits)
        : waits(operationWaits),
          slot(entry.slot),
          source(entry.buffer),
          fence(entry.fence != nullptr ? entry.fence : Fence::NO_FENCE),
          timestampNs(entry.timestamp),
          config(entry.config),
          width(source->getWidth()),
          height(source->getHeight()),
          queuedSlot(entry.slot) {}

    // The timestamp in microseconds, as passed to the VPP and used as the key of the pools.
    // Truncated toward zero.
    uint64_t timestampUs() const { return static_cast<uint64_t>(timestampNs / 1000); }
    uint32_t format() const { return static_cast<uint32_t>(source->getPixelFormat()); }
    bool hasVectors() const { return forward != nullptr && backward != nullptr; }

    WaitBudget& waits;  // shared by the whole operation

    // Copies of the client's values, because a callback may change the client's packet.
    const int32_t slot;
    sp<GraphicBuffer> source;
    sp<Fence> fence;  // moved to the converter
    const int64_t timestampNs;
    const std::optional<ConfigParams> config;

    const uint32_t width;      // pixels
    const uint32_t height;     // pixels
    int32_t queuedSlot;        // the slot under which the target is queued
    sp<GraphicBuffer> target;  // receives the NV12 frame
    sp<GraphicBuffer> forward;
    sp<GraphicBuffer> backward;
    sp<GraphicBuffer> downscaled;
    bool sizeChanged = false;
    bool fresh = false;  // no valid reference frame, so no motion vectors
};

}  // namespace android
