// One source packet on its way through intake. Private to src/.
#pragma once

#include <qoz/VppComponent.h>

#include <cstdint>

namespace android {

struct VppComponent::SourceFrame {
    explicit SourceFrame(const QOZBufferInfo& packetEntry)
        : entry(packetEntry),
          source(packetEntry.buffer),
          width(source->getWidth()),
          height(source->getHeight()),
          queuedSlot(packetEntry.slot) {}

    // Microseconds: what the VPP is given, and the key of the pools. Truncates toward zero.
    uint64_t timestampUs() const { return static_cast<uint64_t>(entry.timestamp / 1000); }

    const QOZBufferInfo& entry;
    sp<GraphicBuffer> source;  // held for the whole path
    const uint32_t width;
    const uint32_t height;
    int32_t queuedSlot;        // travels with the target to the VPP
    sp<GraphicBuffer> target;  // receives the NV12 frame
    sp<GraphicBuffer> forward;
    sp<GraphicBuffer> backward;
    sp<GraphicBuffer> downscaled;
    bool sizeChanged = false;
    bool fresh = false;  // no valid reference frame before it: no motion vectors
};

}  // namespace android
