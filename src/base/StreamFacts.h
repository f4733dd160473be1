// SPDX-License-Identifier: Apache-2.0
// The facts about a stream that a component publishes to other threads. Private to src/.
#pragma once

#include <android-base/thread_annotations.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace android {

// A copy of the values that the getters return and dump() prints. The original members belong to
// the thread that runs the stream; any thread may read the copy at any time.
struct StreamFacts {
    uint32_t outBufReqsPerFrame = 1;
    uint32_t outputWidth = 0;   // pixels
    uint32_t outputHeight = 0;  // pixels
    uint32_t inputWidth = 0;    // pixels, of the input port
    uint32_t inputHeight = 0;   // pixels, of the input port
    uint32_t format = 0;        // pixel format of the sources
    uint32_t interpFactor = 0;
    bool motionVectors = false;
    bool downscaledCopies = false;
};

// Owns the copy. Its lock is a leaf.
class PublishedFacts {
  public:
    StreamFacts read() const EXCLUDES(mLock) {
        const std::lock_guard<std::mutex> lock(mLock);
        return mFacts;
    }

    // Calls `change` with the facts, under the lock.
    template <typename Change>
    void update(Change change) EXCLUDES(mLock) {
        const std::lock_guard<std::mutex> lock(mLock);
        change(mFacts);
    }

    // The number of entries in the list of held source slots. It is apart from the other facts and
    // atomic, because it changes twice with every frame.
    size_t heldSlots() const { return mHeldSlots.load(std::memory_order_relaxed); }
    void setHeldSlots(size_t count) { mHeldSlots.store(count, std::memory_order_relaxed); }

  private:
    std::atomic<size_t> mHeldSlots{0};
    mutable std::mutex mLock;
    StreamFacts mFacts GUARDED_BY(mLock);
};

}  // namespace android
