// SPDX-License-Identifier: Apache-2.0
// The memory of the buffers that a session holds, to notice a client that queues it again.
#pragma once

#include <android-base/thread_annotations.h>
#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace qoz::host::vppservice {

// A device may read or write the memory of a buffer from its queueing to its return. Memory that a
// client queues again before, or that it gives to another frame meanwhile, has the wrong content on
// a device, although nothing fails. Each such case is counted in `memoryQueuedTwice` of the
// resource counters. A session has one of these objects. Callable on any thread; its lock is a
// leaf.
class HeldMemory : public std::enable_shared_from_this<HeldMemory> {
  public:
    // What memory is held for: the side buffers of the frame with this timestamp (microseconds), or
    // pixels if it is empty. Frames with one timestamp may share side buffers.
    using Use = std::optional<uint64_t>;

  private:
    using Id = std::pair<dev_t, ino_t>;  // memory has the same one through any descriptor
    using Uses = std::multimap<Id, Use>;

  public:
    // Holds memory until it is destroyed. Empty after a move.
    class Hold {
      public:
        Hold() = default;
        Hold(std::shared_ptr<HeldMemory> in, Uses::iterator use) : mIn(std::move(in)), mUse(use) {}
        Hold(Hold&&) noexcept = default;
        Hold& operator=(Hold&& other) noexcept {
            std::swap(mIn, other.mIn);
            std::swap(mUse, other.mUse);
            return *this;
        }
        ~Hold() {
            if (mIn != nullptr) mIn->release(mUse);
        }

      private:
        std::shared_ptr<HeldMemory> mIn;
        Uses::iterator mUse;
    };

    // Holds the memory behind a descriptor and counts it if it must not be queued now. Throws
    // std::bad_alloc.
    Hold hold(int fd, Use use) EXCLUDES(mLock);

  private:
    bool isHeldForAnother(const Id& id, Use use) const REQUIRES(mLock);
    void release(Uses::iterator use) EXCLUDES(mLock);

    std::mutex mLock;
    Uses mUses GUARDED_BY(mLock);
};

}  // namespace qoz::host::vppservice
