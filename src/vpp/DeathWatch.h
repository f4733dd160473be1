// SPDX-License-Identifier: Apache-2.0
// The death of the service behind a binder. Private to src/.
#pragma once

#include <android/binder_auto_utils.h>

#include <cstdint>
#include <functional>
#include <utility>

namespace android {

// Has `onDeath` called once, on a binder thread, when the process behind a binder dies; at once, on
// the caller's thread, when it has died already. A binder that cannot die (null, or an object of
// this process) is not watched.
//
// A notice may be under way while the watch ends: `onDeath` may then be called a moment later, so
// what it reaches it holds weakly. The watch belongs to the thread that enables and disables.
class DeathWatch {
  public:
    DeathWatch() = default;
    DeathWatch(::ndk::SpAIBinder binder, std::function<void()> onDeath);
    ~DeathWatch() { end(); }

    DeathWatch(const DeathWatch&) = delete;
    DeathWatch& operator=(const DeathWatch&) = delete;
    DeathWatch(DeathWatch&& other) noexcept { *this = std::move(other); }
    DeathWatch& operator=(DeathWatch&& other) noexcept;

  private:
    void end();

    ::ndk::SpAIBinder mBinder;
    uintptr_t mId = 0;  // 0: watches nothing
};

}  // namespace android
