#pragma once

#include <cstdint>
#include <utility>

struct AIBinder;

void AIBinder_incStrong(AIBinder* binder);
void AIBinder_decStrong(AIBinder* binder);

using binder_status_t = int32_t;
enum {
    STATUS_OK = 0,
    STATUS_UNKNOWN_TRANSACTION = -74,
    STATUS_DEAD_OBJECT = -32,
    STATUS_NAME_NOT_FOUND = -2,
    STATUS_UNEXPECTED_NULL = -2147483640,
};

namespace ndk {

// Owns one strong reference to a binder.
class SpAIBinder {
  public:
    SpAIBinder() = default;
    explicit SpAIBinder(AIBinder* binder) : mBinder(binder) {}  // takes the reference over
    SpAIBinder(const SpAIBinder& other) : mBinder(other.mBinder) {
        if (mBinder != nullptr) AIBinder_incStrong(mBinder);
    }
    SpAIBinder(SpAIBinder&& other) noexcept : mBinder(std::exchange(other.mBinder, nullptr)) {}
    ~SpAIBinder() { set(nullptr); }

    SpAIBinder& operator=(SpAIBinder other) {
        std::swap(mBinder, other.mBinder);
        return *this;
    }

    void set(AIBinder* binder) {
        AIBinder* old = std::exchange(mBinder, binder);
        if (old != nullptr) AIBinder_decStrong(old);
    }
    AIBinder* get() const { return mBinder; }

  private:
    AIBinder* mBinder = nullptr;
};

// Outcome of a binder call.
class ScopedAStatus {
  public:
    ScopedAStatus() = default;
    ScopedAStatus(ScopedAStatus&&) noexcept = default;
    ScopedAStatus& operator=(ScopedAStatus&&) noexcept = default;

    bool isOk() const { return mStatus == STATUS_OK; }
    binder_status_t getStatus() const { return mStatus; }

    static ScopedAStatus ok() { return {}; }
    static ScopedAStatus fromStatus(binder_status_t status) {
        ScopedAStatus result;
        result.mStatus = status;
        return result;
    }

  private:
    binder_status_t mStatus = STATUS_OK;
};

// Owns one file descriptor.
class ScopedFileDescriptor {
  public:
    explicit ScopedFileDescriptor(int fd = -1) : mFd(fd) {}
    ScopedFileDescriptor(ScopedFileDescriptor&& other) noexcept
        : mFd(std::exchange(other.mFd, -1)) {}
    ScopedFileDescriptor& operator=(ScopedFileDescriptor&& other) noexcept {
        set(std::exchange(other.mFd, -1));
        return *this;
    }
    ~ScopedFileDescriptor() { set(-1); }

    int get() const { return mFd; }
    void set(int fd);
    ScopedFileDescriptor dup() const;

  private:
    int mFd;
};

}  // namespace ndk
