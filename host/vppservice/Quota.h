// SPDX-License-Identifier: Apache-2.0
// What one client may have of the service at a time, and what it has.
#pragma once

#include <android-base/thread_annotations.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

namespace qoz::host::vppservice {

struct Resources {
    uint64_t sessions = 0;     // being opened, open, and being ended
    uint64_t calls = 0;        // of sessions, that wait to be carried out
    uint64_t descriptors = 0;  // that came with those calls
    uint64_t events = 0;       // flushes, drains and reconfigurations whose event is still owed
    uint64_t buffers = 0;      // queued, not yet returned
    uint64_t mappedBytes = 0;  // of those buffers
};

// The budget of each client: far above what a real one has. A stream has 64 output slots and rarely
// a dozen sources in the service; its client makes one call at a time; a frame of 3840 x 2160 has
// 12 MiB. Beyond any of these an operation is answered with VPP_ERR_RESOURCES, a new session is
// null, and nothing else of the client changes.
inline constexpr Resources kClientBudget{.sessions = 64,
                                         .calls = 128,
                                         .descriptors = 1024,
                                         .events = 128,
                                         .buffers = 4096,
                                         .mappedBytes = 4ULL << 30};

// Of one record; a frame with all its side buffers brings four.
inline constexpr uint64_t kMostRecordDescriptors = 32;

// The budget of all clients together is what a process can carry: four threads a session, four
// mappings a buffer (the kernel's limit is 65,530). Descriptors are bounded by the process's own
// limit, of which these are kept for its other needs: the largest message that a bus lets through
// brings 253, twice until it has been looked at.
inline constexpr uint64_t kMostSessions = 256;
inline constexpr uint64_t kMostBuffers = 12288;
inline constexpr uint64_t kSpareDescriptors = 600;

class Quota;

// Part of a quota, given back at the end of the object. Empty when moved from.
class Reservation {
  public:
    Reservation() = default;
    Reservation(std::shared_ptr<Quota> quota, const Resources& taken)
        : mQuota(std::move(quota)), mTaken(taken) {}
    Reservation(Reservation&&) noexcept = default;
    Reservation& operator=(Reservation&& other) noexcept {
        std::swap(mQuota, other.mQuota);
        std::swap(mTaken, other.mTaken);
        return *this;
    }
    ~Reservation();

  private:
    std::shared_ptr<Quota> mQuota;
    Resources mTaken;
};

// Callable on any thread; its lock is a leaf.
class Quota : public std::enable_shared_from_this<Quota> {
  public:
    // What is taken here counts against `whole` too, if there is one.
    explicit Quota(const Resources& budget, std::shared_ptr<Quota> whole = nullptr)
        : mBudget(budget), mWhole(std::move(whole)) {}

    // Nothing when any of it is beyond the budget; then none of it is taken.
    std::optional<Reservation> reserve(const Resources& wanted) EXCLUDES(mLock);

  private:
    friend class Reservation;

    bool take(const Resources& wanted) EXCLUDES(mLock);
    void giveBack(const Resources& taken) EXCLUDES(mLock);

    const Resources mBudget;
    const std::shared_ptr<Quota> mWhole;
    std::mutex mLock;
    Resources mUsed GUARDED_BY(mLock);
};

}  // namespace qoz::host::vppservice
