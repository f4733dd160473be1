// SPDX-License-Identifier: Apache-2.0
// One source packet on its way through intake. Private to src/.
#pragma once

#include <qoz/ClientTypes.h>

#include <cstdint>
#include <optional>

#include "base/BoundedWait.h"
#include "pipeline/SideBufferPool.h"

namespace android {

// Made from the packet's first entry when process() takes it, and filled step by step: target, side
// buffers, and what the steps find out about it. Belongs to the client's thread for the time of one
// process(); what it holds then goes on with the record, the pools, or the reference frame.
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

    // Microseconds: what the VPP is given, and the key of the pools. Truncates toward zero.
    uint64_t timestampUs() const { return static_cast<uint64_t>(timestampNs / 1000); }
    uint32_t format() const { return static_cast<uint32_t>(source->getPixelFormat()); }
    bool hasVectors() const { return forward != nullptr && backward != nullptr; }

    WaitBudget& waits;  // of the whole operation

    // Copies: the callbacks on the way may change the client's packet.
    const int32_t slot;
    sp<GraphicBuffer> source;
    const sp<Fence> fence;
    const int64_t timestampNs;
    const std::optional<ConfigParams> config;

    const uint32_t width;      // pixels
    const uint32_t height;     // pixels
    int32_t queuedSlot;        // travels with the target to the VPP
    sp<GraphicBuffer> target;  // receives the NV12 frame
    sp<GraphicBuffer> forward;
    sp<GraphicBuffer> backward;
    sp<GraphicBuffer> downscaled;
    bool sizeChanged = false;
    bool fresh = false;  // no valid reference frame before it: no motion vectors
};

}  // namespace android
