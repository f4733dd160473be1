// SPDX-License-Identifier: Apache-2.0
// The buffers of a client. A slot is free, or its buffer is outstanding and not the client's to
// touch; the ledger knows which. One thread makes and uses a ring.
#pragma once

#include <array>
#include <atomic>
#include <deque>
#include <optional>
#include <vector>

#include "client/Pixels.h"

namespace qoz::client {

// Graphic buffers that clients have made by way of this kit, in the whole process.
std::atomic<uint64_t>& clientBuffersMade();

// Output buffers, all of the size that the stream puts out now.
class OutputRing {
  public:
    static constexpr int32_t kSlots = 64;  // what the component can deliver

    // Makes it `count` buffers of `size`. Those of another size are released; the ones outstanding
    // are released when they are returned. Throws SessionFailed when there is no memory or no slot.
    void reshape(Size size, size_t count);

    std::optional<int32_t> take();  // the slot that has been free for the longest time
    void putBack(int32_t slot);

    const BufferRef& buffer(int32_t slot) const { return mBuffers.at(static_cast<size_t>(slot)); }
    Size size() const { return mSize; }
    void clear();  // no slot has a buffer

  private:
    BufferRef& at(int32_t slot) { return mBuffers.at(static_cast<size_t>(slot)); }
    bool isCurrent(int32_t slot) const;  // of the size that the ring has now

    std::array<BufferRef, kSlots> mBuffers;  // null: the slot has none
    std::deque<int32_t> mFree;
    Size mSize;
};

// Source buffers. The slot that has been free for the longest time is taken first: the component
// goes on reading the last frame it converted as the reference of the next, also when it has
// returned the slot.
class SourceRing {
  public:
    // One to paint, one to convert, one that is the reference frame, and one to spare.
    static constexpr size_t kSlots = 4;
    static constexpr int32_t kFirst = 100;  // apart from output slots: a mix-up shows in the ledger

    explicit SourceRing(size_t slots = kSlots) : mBuffers(slots) { clear(); }

    bool hasFree() const { return !mFree.empty(); }

    // Replaces the slot's buffer when it has another size. Throws SessionFailed when there is no
    // memory; there must be a free slot.
    int32_t take(Size size);
    void putBack(int32_t slot) { mFree.push_back(slot); }

    const BufferRef& buffer(int32_t slot) const {
        return mBuffers.at(static_cast<size_t>(slot - kFirst));
    }
    void clear();  // every slot is free, and none has a buffer

  private:
    std::vector<BufferRef> mBuffers;
    std::deque<int32_t> mFree;
};

}  // namespace qoz::client
