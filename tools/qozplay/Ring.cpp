#include "Ring.h"

#include <algorithm>
#include <utility>

namespace qozplay {
namespace {

using android::GraphicBuffer;

constexpr uint32_t kSourceUsage = GraphicBuffer::USAGE_SW_WRITE_OFTEN |
                                  GraphicBuffer::USAGE_HW_TEXTURE | GraphicBuffer::USAGE_HW_RENDER;
constexpr uint32_t kOutputUsage = GraphicBuffer::USAGE_SW_READ_OFTEN |
                                  GraphicBuffer::USAGE_SW_WRITE_OFTEN |
                                  GraphicBuffer::USAGE_HW_TEXTURE;

BufferRef makeBuffer(Size size, int32_t pixelFormat, uint32_t usage) {
    BufferRef buffer(new GraphicBuffer(size.width, size.height, pixelFormat, usage, "qozplay"));
    if (buffer->initCheck() != android::OK) {
        throw SessionFailed("no memory for a graphic buffer of " + toText(size));
    }
    ++ringBuffersMade();
    return buffer;
}

Size sizeOf(const BufferRef& buffer) {
    return {buffer->getWidth(), buffer->getHeight()};
}

}  // namespace

std::atomic<uint64_t>& ringBuffersMade() {
    static std::atomic<uint64_t> made{0};
    return made;
}

Mapping::Mapping(BufferRef buffer, uint32_t usage) : mBuffer(std::move(buffer)) {
    void* address = nullptr;
    if (mBuffer->lock(usage, &address) != android::OK) {
        throw SessionFailed("the pixels of a graphic buffer cannot be mapped");
    }
    mData = static_cast<uint8_t*>(address);
}

Mapping::~Mapping() {
    mBuffer->unlock();
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
        at(slot) = makeBuffer(size, kNv12Vemo, kOutputUsage);
        mFree.push_back(slot);
    }
    if (currentBuffers() < count) throw SessionFailed("too many buffers are still lent");
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

SourceRing::SourceRing() {
    for (int32_t i = 0; i < kSlots; ++i) {
        mFree.push_back(kFirst + i);
    }
}

int32_t SourceRing::take(Size size) {
    const int32_t slot = mFree.front();
    BufferRef& buffer = mBuffers.at(static_cast<size_t>(slot - kFirst));
    if (buffer == nullptr || sizeOf(buffer) != size) buffer = makeBuffer(size, kRgba, kSourceUsage);
    mFree.pop_front();
    return slot;
}

void SourceRing::clear() {
    mFree.clear();
    mBuffers.fill({});
}

}  // namespace qozplay
