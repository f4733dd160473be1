// SPDX-License-Identifier: Apache-2.0
#include "vpp/DeathWatch.h"

#include <android-base/thread_annotations.h>
#include <android/binder_ibinder.h>

#include <map>
#include <mutex>
#include <utility>

namespace android {
namespace {

// The watches of the process. A recipient's cookie is the number of a watch, never an address: a
// notice that comes after the watch has ended finds no such number. (Not every platform release
// says when a cookie is no longer used.) Never destroyed, as binder threads run to the end of the
// process.
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

    // What the watch is to call; nothing when it has ended or been called.
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
    // Called by the platform on a binder thread, once for each binder that has died.
    static void onBinderDied(void* cookie) {
        const auto onDeath = instance().take(reinterpret_cast<uintptr_t>(cookie));
        if (onDeath) onDeath();
    }

    AIBinder_DeathRecipient* const mRecipient = AIBinder_DeathRecipient_new(onBinderDied);
    std::mutex mLock;
    std::map<uintptr_t, std::function<void()>> mOnDeath GUARDED_BY(mLock);
    uintptr_t mLast GUARDED_BY(mLock) = 0;
};

// The platform's cookie for a watch.
void* cookieOf(uintptr_t id) {
    return reinterpret_cast<void*>(id);  // NOLINT(performance-no-int-to-ptr): never dereferenced
}

}  // namespace

// The watch is entered before the platform is asked, because the notice may come before the answer.
// A binder that is dead already gives no notice, so that is delivered here.
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

// Unlinking fails for a binder that has died; either way no notice finds the number afterwards.
void DeathWatch::end() {
    if (mId == 0) return;
    Watches& all = Watches::instance();
    (void)AIBinder_unlinkToDeath(mBinder.get(), all.recipient(), cookieOf(mId));
    (void)all.take(mId);
    mId = 0;
    mBinder.set(nullptr);
}

}  // namespace android
