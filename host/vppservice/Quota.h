// SPDX-License-Identifier: Apache-2.0
// Limits for the resources that a client, and all clients together, may use at a time.
#pragma once

#include <android-base/thread_annotations.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

namespace qoz::host::vppservice {

// Amounts of each limited resource.
struct Resources {
    uint64_t sessions = 0;     // sessions that are being opened, are open, or are being ended
    uint64_t calls = 0;        // calls of sessions that are not carried out yet
    uint64_t descriptors = 0;  // descriptors that came with those calls
    uint64_t events = 0;       // flushes, drains and reconfigurations without their event yet
    uint64_t buffers = 0;      // outstanding buffers
    uint64_t mappedBytes = 0;  // mapped memory of those buffers
};

// The budget of each client, far above what an ordinary one needs: a stream has 64 output slots and
// rarely more than a dozen sources in the service, its client makes one call at a time, and a frame
// of 3840 x 2160 takes 12 MiB. An operation beyond the budget is answered with VPP_ERR_RESOURCES, a
// new session is null, and the client's other sessions are not affected.
inline constexpr Resources kClientBudget{.sessions = 64,
                                         .calls = 128,
                                         .descriptors = 1024,
                                         .events = 128,
                                         .buffers = 4096,
                                         .mappedBytes = 4ULL << 30};

// The number of descriptors that one record may have. A frame with all its side buffers has four.
inline constexpr uint64_t kMostRecordDescriptors = 32;

// The budget of all clients together is what a process can carry: four threads for each session,
// and four mappings for each buffer, of which the kernel allows 65,530. Descriptors are limited by
// the process itself; kSpareDescriptors of them are kept free for other needs. The largest message
// on a bus has 253 descriptors, and these exist twice until the message has been parsed.
inline constexpr uint64_t kMostSessions = 256;
inline constexpr uint64_t kMostBuffers = 12288;
inline constexpr uint64_t kSpareDescriptors = 600;

class Quota;

// A reserved part of a quota, which the destructor gives back. Empty after a move.
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

// The resources that one client, or all clients together, may use and do use. Callable on any
// thread; its lock is a leaf.
class Quota : public std::enable_shared_from_this<Quota> {
  public:
    // Reservations count against `whole` too, unless that is null.
    explicit Quota(const Resources& budget, std::shared_ptr<Quota> whole = nullptr)
        : mBudget(budget), mWhole(std::move(whole)) {}

    // Reserves resources. Returns nothing, and reserves nothing, if one of them would exceed a
    // budget.
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
