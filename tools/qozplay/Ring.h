// The client's buffers. Each slot is free, or lent and then not ours to touch; the ledger knows
// which. Made and used by one thread.
#pragma once

#include "Basics.h"

#include <ui/GraphicBuffer.h>

#include <array>
#include <atomic>
#include <deque>
#include <optional>
#include <vector>

namespace qozplay {

using BufferRef = android::sp<android::GraphicBuffer>;

constexpr int32_t kRgba = 1;               // pixel-format number of the sources
constexpr int32_t kNv12Vemo = 0x7FA30C06;  // and of the output buffers

// Graphic buffers that the player has made, over all its rings.
std::atomic<uint64_t>& ringBuffersMade();

// Pixels of a buffer for as long as the object lives. Throws SessionFailed when they cannot be had.
class Mapping {
  public:
    Mapping(BufferRef buffer, uint32_t usage);
    ~Mapping();

    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;

    uint8_t* data() const { return mData; }
    size_t stride() const { return mBuffer->getStride(); }  // pixels
    Size size() const { return {mBuffer->getWidth(), mBuffer->getHeight()}; }

  private:
    BufferRef mBuffer;
    uint8_t* mData = nullptr;
};

// Output buffers, all of the size that the stream puts out now.
class OutputRing {
  public:
    static constexpr int32_t kSlots = 64;  // what the component can deliver

    // Makes it `count` buffers of `size`. Those of another size go; the ones that are lent go when
    // they come back. Throws SessionFailed when there is no memory or no slot.
    void reshape(Size size, size_t count);

    std::optional<int32_t> take();  // a free slot to lend, the one that rested longest
    void putBack(int32_t slot);

    const BufferRef& buffer(int32_t slot) const { return mBuffers.at(static_cast<size_t>(slot)); }
    bool isCurrent(int32_t slot) const;  // of the size that the ring has now
    Size size() const { return mSize; }
    void clear();

  private:
    BufferRef& at(int32_t slot) { return mBuffers.at(static_cast<size_t>(slot)); }
    size_t currentBuffers() const;

    std::array<BufferRef, kSlots> mBuffers;  // null: the slot has none
    std::deque<int32_t> mFree;
    Size mSize;
};

// Source buffers. The slot that rested longest is taken first: the component goes on reading the
// last frame it converted as the reference of the next, also when it has given the slot back.
class SourceRing {
  public:
    static constexpr int32_t kSlots = 4;
    static constexpr int32_t kFirst = 100;  // apart from output slots: a mix-up shows in the ledger

    SourceRing();

    bool hasFree() const { return !mFree.empty(); }

    // Makes the slot's buffer anew when it has another size. Throws SessionFailed when there is no
    // memory; there must be a free slot.
    int32_t take(Size size);
    void putBack(int32_t slot) { mFree.push_back(slot); }

    const BufferRef& buffer(int32_t slot) const {
        return mBuffers.at(static_cast<size_t>(slot - kFirst));
    }
    void clear();

  private:
    std::array<BufferRef, kSlots> mBuffers;
    std::deque<int32_t> mFree;
};

}  // namespace qozplay
