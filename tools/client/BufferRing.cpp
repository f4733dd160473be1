// SPDX-License-Identifier: Apache-2.0
#include "client/BufferRing.h"

#include <algorithm>
#include <utility>

namespace qoz::client {
namespace {

using android::GraphicBuffer;

constexpr uint32_t kSourceUsage = GraphicBuffer::USAGE_SW_WRITE_OFTEN |
                                  GraphicBuffer::USAGE_HW_TEXTURE | GraphicBuffer::USAGE_HW_RENDER;
constexpr uint32_t kOutputUsage = GraphicBuffer::USAGE_SW_READ_OFTEN |
                                  GraphicBuffer::USAGE_SW_WRITE_OFTEN |
                                  GraphicBuffer::USAGE_HW_TEXTURE;

// Allocates a buffer and counts it. Throws SessionFailed on allocation failure.
BufferRef allocated(Size size, int32_t pixelFormat, uint32_t usage) {
    BufferRef buffer(new GraphicBuffer(size.width, size.height, pixelFormat, usage, "client"));
    if (buffer->initCheck() != android::OK)
        throw SessionFailed("no memory for a graphic buffer of " + toText(size));
    ++clientBuffersMade();
    return buffer;
}

}  // namespace

std::atomic<uint64_t>& clientBuffersMade() {
    static std::atomic<uint64_t> made{0};
    return made;
}

bool OutputRing::isCurrent(int32_t slot) const {
    return buffer(slot) != nullptr && sizeOf(buffer(slot)) == mSize;
}

void OutputRing::reshape(Size size, size_t count) {
    mSize = size;
    for (const int32_t slot : std::exchange(mFree, {}))
        putBack(slot);  // releases the buffer if it has another size
    size_t current = 0;
    for (int32_t slot = 0; slot < kSlots; ++slot)
        current += isCurrent(slot) ? 1 : 0;
    for (int32_t slot = 0; slot < kSlots && current < count; ++slot) {
        if (at(slot) != nullptr) continue;
        at(slot) = allocated(size, kNv12Vemo, kOutputUsage);
        mFree.push_back(slot);
        ++current;
    }
    if (current < count) throw SessionFailed("too many buffers are still outstanding");
}

std::optional<int32_t> OutputRing::take() {
    if (mFree.empty()) return std::nullopt;
    const int32_t slot = mFree.front();
    mFree.pop_front();
    return slot;
}

void OutputRing::putBack(int32_t slot) {
    if (isCurrent(slot)) {
        mFree.push_back(slot);
    } else {
        at(slot).clear();
    }
}

void OutputRing::clear() {
    mFree.clear();
    mBuffers.fill({});
}

int32_t SourceRing::take(Size size) {
    const int32_t slot = mFree.front();
    BufferRef& buffer = mBuffers.at(static_cast<size_t>(slot - kFirst));
    if (buffer == nullptr || sizeOf(buffer) != size) buffer = allocated(size, kRgba, kSourceUsage);
    mFree.pop_front();
    return slot;
}

void SourceRing::clear() {
    mFree.clear();
    for (BufferRef& buffer : mBuffers) {
        buffer.clear();
        mFree.push_back(kFirst + static_cast<int32_t>(mFree.size()));
    }
}

}  // namespace qoz::client
