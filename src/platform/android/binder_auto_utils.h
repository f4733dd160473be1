// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_status.h>

#include <utility>

namespace ndk {

// Owns one strong reference to a binder.
class SpAIBinder {
  public:
    SpAIBinder() = default;
    explicit SpAIBinder(AIBinder* binder) : mBinder(binder) {}  // takes ownership of the reference
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

// Owns one weak reference to a binder.
class ScopedAIBinder_Weak {
  public:
    ScopedAIBinder_Weak() = default;
    ~ScopedAIBinder_Weak() { set(nullptr); }

    ScopedAIBinder_Weak(const ScopedAIBinder_Weak&) = delete;
    ScopedAIBinder_Weak& operator=(const ScopedAIBinder_Weak&) = delete;

    void set(AIBinder_Weak* weak) {
        AIBinder_Weak* old = std::exchange(mWeak, weak);
        if (old != nullptr) AIBinder_Weak_delete(old);
    }

    // Returns null if there is no binder or if it has been destroyed.
    SpAIBinder promote() const {
        return SpAIBinder(mWeak == nullptr ? nullptr : AIBinder_Weak_promote(mWeak));
    }

  private:
    AIBinder_Weak* mWeak = nullptr;
};

// The status of a binder call. A default-constructed status is not OK.
class ScopedAStatus {
  public:
    ScopedAStatus() = default;
    ScopedAStatus(ScopedAStatus&&) noexcept = default;
    ScopedAStatus& operator=(ScopedAStatus&&) noexcept = default;

    bool isOk() const { return mStatus == STATUS_OK; }

    static ScopedAStatus ok() { return fromStatus(STATUS_OK); }
    static ScopedAStatus fromStatus(binder_status_t status) {
        ScopedAStatus result;
        result.mStatus = status;
        return result;
    }

  private:
    binder_status_t mStatus = STATUS_UNKNOWN_ERROR;
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

  private:
    int mFd;
};

}  // namespace ndk
