// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <utility>

namespace android {

// Owning pointer to an object that counts its own references (RefBase, LightRefBase).
template <typename T>
class sp {
  public:
    sp() = default;
    sp(T* other) : mPtr(other) {  // NOLINT(google-explicit-constructor): as on the platform
        if (mPtr != nullptr) mPtr->incStrong(this);
    }
    sp(const sp& other) : sp(other.mPtr) {}
    sp(sp&& other) noexcept : mPtr(std::exchange(other.mPtr, nullptr)) {}
    template <typename U>
    sp(const sp<U>& other) : sp(other.get()) {}  // NOLINT(google-explicit-constructor)
    ~sp() {
        if (mPtr != nullptr) mPtr->decStrong(this);
    }

    sp& operator=(const sp& other) {
        sp(other).swap(*this);
        return *this;
    }
    sp& operator=(sp&& other) noexcept {
        sp(std::move(other)).swap(*this);
        return *this;
    }
    sp& operator=(T* other) {
        sp(other).swap(*this);
        return *this;
    }

    void clear() { sp().swap(*this); }

    T& operator*() const { return *mPtr; }
    T* operator->() const { return mPtr; }
    T* get() const { return mPtr; }
    explicit operator bool() const { return mPtr != nullptr; }

    bool operator==(const sp& other) const { return mPtr == other.mPtr; }
    bool operator==(const T* other) const { return mPtr == other; }
    bool operator==(std::nullptr_t) const { return mPtr == nullptr; }

  private:
    void swap(sp& other) noexcept { std::swap(mPtr, other.mPtr); }

    T* mPtr = nullptr;
};

}  // namespace android
