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

BufferRef checked(BufferRef buffer, Size size) {
    if (buffer->initCheck() == android::OK) return buffer;
    throw SessionFailed("no memory for a graphic buffer of " + toText(size));
}

}  // namespace

std::atomic<uint64_t>& clientBuffersMade() {
    static std::atomic<uint64_t> made{0};
    return made;
}

BufferRef resized(const BufferRef& buffer, Size size, int32_t pixelFormat, uint32_t usage) {
    if (buffer != nullptr && sizeOf(buffer) == size) return buffer;
    BufferRef made(new GraphicBuffer(size.width, size.height, pixelFormat, usage, "client"));
    if (made->initCheck() == android::OK) ++clientBuffersMade();
    return made;
}

size_t OutputRing::currentBuffers() const {
    return static_cast<size_t>(std::count_if(
        mBuffers.begin(), mBuffers.end(),
        [&](const BufferRef& buffer) { return buffer != nullptr && sizeOf(buffer) == mSize; }));
}

void OutputRing::reshape(Size size, size_t count) {
    mSize = size;
    std::erase_if(mFree, [&](int32_t slot) {
        const bool stale = !isCurrent(slot);
        if (stale) at(slot).clear();
        return stale;
    });
    for (int32_t slot = 0; slot < kSlots && currentBuffers() < count; ++slot) {
        if (at(slot) != nullptr) continue;
        at(slot) = checked(resized({}, size, kNv12Vemo, kOutputUsage), size);
        mFree.push_back(slot);
    }
    if (currentBuffers() < count) throw SessionFailed("too many buffers are still outstanding");
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

bool OutputRing::isCurrent(int32_t slot) const {
    return sizeOf(buffer(slot)) == mSize;
}

void OutputRing::clear() {
    mFree.clear();
    mBuffers.fill({});
}

int32_t SourceRing::take(Size size) {
    const int32_t slot = mFree.front();
    BufferRef& buffer = mBuffers.at(static_cast<size_t>(slot - kFirst));
    buffer = checked(resized(buffer, size, kRgba, kSourceUsage), size);
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
