// SPDX-License-Identifier: Apache-2.0
// Notification of the death of the service behind a binder. Private to src/.
#pragma once

#include <android/binder_auto_utils.h>

#include <cstdint>
#include <functional>
#include <utility>

namespace android {

// Calls `onDeath` once, on a binder thread, when the process behind a binder dies. If it has
// already died, the constructor calls `onDeath` on the caller's thread. A binder is not watched if
// it is null or if the platform refuses to link to it, as a device does for an object of the same
// process.
//
// If the watch ends while a notification is being delivered, `onDeath` may still be called shortly
// afterwards, so it must hold only weak references. The watch is used only by the thread in
// enable() or disable().
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
    uintptr_t mId = 0;  // 0 if nothing is watched
};

}  // namespace android
