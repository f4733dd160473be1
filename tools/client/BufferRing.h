// SPDX-License-Identifier: Apache-2.0
// The graphic buffers of a client, by slot: one ring for output buffers and one for source buffers.
// A slot that is not in the ring's list of free slots is being used by the client or is
// outstanding; the ledger records which slots are outstanding. The rings take no lock: one thread
// creates and uses them.
#pragma once

#include <array>
#include <atomic>
#include <deque>
#include <optional>
#include <vector>

#include "client/Pixels.h"

namespace qoz::client {

// The number of graphic buffers that all clients in this process have allocated with this kit.
// Subtracted from the count of the host simulator, it leaves the buffers that the components
// allocated.
std::atomic<uint64_t>& clientBuffersMade();

// The output buffers. All free ones have the size that the ring was last given.
class OutputRing {
  public:
    static constexpr int32_t kSlots = 64;  // the number of slots that the component can deliver

    // Allocates buffers until the ring has `count` of `size`. Free buffers of another size are
    // released at once, outstanding ones when they are returned. Throws SessionFailed on allocation
    // failure and if outstanding buffers of another size occupy too many slots.
    void reshape(Size size, size_t count);

    // Takes the slot that has been free for the longest time; returns nullopt if none is free.
    std::optional<int32_t> take();
    // Makes a slot free again, or releases its buffer if that no longer has the current size.
    void putBack(int32_t slot);

    const BufferRef& buffer(int32_t slot) const { return mBuffers.at(static_cast<size_t>(slot)); }
    Size size() const { return mSize; }
    void clear();  // releases all buffers

  private:
    BufferRef& at(int32_t slot) { return mBuffers.at(static_cast<size_t>(slot)); }
    bool isCurrent(int32_t slot) const;  // true if the slot has a buffer of the current size

    std::array<BufferRef, kSlots> mBuffers;  // null for a slot without a buffer
    std::deque<int32_t> mFree;
    Size mSize;
};

// The source buffers. The slot that has been free for the longest time is taken first, because the
// component may return a slot while it still reads the buffer as the reference frame of the next
// one. Painting over that buffer at once would falsify the motion vectors.
class SourceRing {
  public:
    // One buffer is painted, one is converted, one is the reference frame, and one is spare.
    static constexpr size_t kSlots = 4;
    // The numbers of source slots differ from those of output slots, so that the ledger detects a
    // buffer that is returned on the wrong port.
    static constexpr int32_t kFirst = 100;

    explicit SourceRing(size_t slots = kSlots) : mBuffers(slots) { clear(); }

    bool hasFree() const { return !mFree.empty(); }

    // Takes a slot, which must be free, and replaces its buffer if that has another size. Throws
    // SessionFailed on allocation failure; the slot then remains free.
    int32_t take(Size size);
    void putBack(int32_t slot) { mFree.push_back(slot); }

    const BufferRef& buffer(int32_t slot) const {
        return mBuffers.at(static_cast<size_t>(slot - kFirst));
    }
    void clear();  // makes every slot free and releases all buffers

  private:
    std::vector<BufferRef> mBuffers;
    std::deque<int32_t> mFree;
};

}  // namespace qoz::client
