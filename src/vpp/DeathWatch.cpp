// SPDX-License-Identifier: Apache-2.0
#include "vpp/DeathWatch.h"

#include <android-base/thread_annotations.h>
#include <android/binder_ibinder.h>

#include <map>
#include <mutex>
#include <utility>

namespace android {
namespace {

// All death watches of the process. The cookie that is passed to the recipient is the number of a
// watch, not an address, so that a notification after the end of the watch finds no entry. (Not
// every platform release reports when it no longer uses a cookie.) Never destroyed, because binder
// threads run until the process ends.
class Watches {
  public:
    static Watches& instance() {
        static auto* watches = new Watches;
        return *watches;
    }

    uintptr_t add(std::function<void()> onDeath) EXCLUDES(mLock) {
        const std::lock_guard<std::mutex> lock(mLock);
        mOnDeath.emplace(++mLast, std::move(onDeath));
        return mLast;
    }

    // Removes a watch and returns its function. Returns an empty function if the watch has ended or
    // has been notified already.
    std::function<void()> take(uintptr_t id) EXCLUDES(mLock) {
        const std::lock_guard<std::mutex> lock(mLock);
        const auto found = mOnDeath.find(id);
        if (found == mOnDeath.end()) return {};
        std::function<void()> onDeath = std::move(found->second);
        mOnDeath.erase(found);
        return onDeath;
    }

    AIBinder_DeathRecipient* recipient() const { return mRecipient; }

  private:
    // Called by the platform on a binder thread, once for each linked binder that has died.
    static void onBinderDied(void* cookie) {
        const auto onDeath = instance().take(reinterpret_cast<uintptr_t>(cookie));
        if (onDeath) onDeath();
    }

    AIBinder_DeathRecipient* const mRecipient = AIBinder_DeathRecipient_new(onBinderDied);
    std::mutex mLock;
    std::map<uintptr_t, std::function<void()>> mOnDeath GUARDED_BY(mLock);
    uintptr_t mLast GUARDED_BY(mLock) = 0;
};

// Returns the cookie that identifies a watch to the platform.
void* cookieOf(uintptr_t id) {
    return reinterpret_cast<void*>(id);  // NOLINT(performance-no-int-to-ptr): never dereferenced
}

}  // namespace

// Registers the watch before it links to the binder, because the notification may arrive before the
// link call returns. The platform sends no notification for a binder that is already dead, so
// `onDeath` is called here in that case.
DeathWatch::DeathWatch(::ndk::SpAIBinder binder, std::function<void()> onDeath) {
    if (binder.get() == nullptr) return;
    Watches& all = Watches::instance();
    const uintptr_t id = all.add(std::move(onDeath));
    const binder_status_t linked =
        AIBinder_linkToDeath(binder.get(), all.recipient(), cookieOf(id));
    if (linked == STATUS_OK) {
        mBinder = std::move(binder);
        mId = id;
        return;
    }
    const auto unused = all.take(id);
    if (linked == STATUS_DEAD_OBJECT && unused) unused();
}

DeathWatch& DeathWatch::operator=(DeathWatch&& other) noexcept {
    end();
    mBinder = std::move(other.mBinder);
    mId = std::exchange(other.mId, 0);
    return *this;
}

// Unlinking fails for a binder that has died. In either case a later notification finds no entry.
void DeathWatch::end() {
    if (mId == 0) return;
    Watches& all = Watches::instance();
    (void)AIBinder_unlinkToDeath(mBinder.get(), all.recipient(), cookieOf(mId));
    (void)all.take(mId);
    mId = 0;
    mBinder.set(nullptr);
}

}  // namespace android
