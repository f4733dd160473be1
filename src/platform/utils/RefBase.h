// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/StrongPointer.h>

#include <atomic>
#include <cstdint>

namespace android {

// Base class of objects that count their own strong references and are destroyed with the last one.
class RefBase {
  public:
    void incStrong(const void* id) const;
    void decStrong(const void* id) const;
    int32_t getStrongCount() const;

    RefBase(const RefBase&) = delete;
    RefBase& operator=(const RefBase&) = delete;

  protected:
    RefBase() = default;
    virtual ~RefBase();

  private:
    mutable std::atomic<int32_t> mStrong{0};
};

// Like RefBase, but without virtual functions. T must be the most derived class.
template <typename T>
class LightRefBase {
  public:
    void incStrong(const void*) const { mCount.fetch_add(1, std::memory_order_relaxed); }
    void decStrong(const void*) const {
        // Acquire-release: the thread that deletes the object must see what other owners wrote.
        if (mCount.fetch_sub(1, std::memory_order_acq_rel) == 1) delete static_cast<const T*>(this);
    }
    int32_t getStrongCount() const { return mCount.load(std::memory_order_relaxed); }

    LightRefBase(const LightRefBase&) = delete;
    LightRefBase& operator=(const LightRefBase&) = delete;

  protected:
    LightRefBase() = default;
    ~LightRefBase() = default;

  private:
    mutable std::atomic<int32_t> mCount{0};
};

}  // namespace android
