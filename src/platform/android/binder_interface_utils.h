// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android-base/thread_annotations.h>
#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

namespace ndk {

// Base class of binder objects. They must be created with make() and are owned by std::shared_ptr
// from the start.
class SharedRefBase {
  public:
    SharedRefBase() = default;
    virtual ~SharedRefBase() = default;

    SharedRefBase(const SharedRefBase&) = delete;
    SharedRefBase& operator=(const SharedRefBase&) = delete;

    // Returns another owning pointer, or null while the constructor runs.
    std::shared_ptr<SharedRefBase> ref() { return mThis.lock(); }

    // Returns null if the object cannot be allocated.
    template <class T, class... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        std::shared_ptr<T> made(new T(std::forward<Args>(args)...));
        if (made != nullptr) static_cast<SharedRefBase&>(*made).mThis = made;
        return made;
    }

    static void operator delete(void* object) { ::operator delete(object); }

  private:
    // Private, so that objects can only be created with make().
    static void* operator new(size_t size) noexcept { return ::operator new(size, std::nothrow); }

    std::weak_ptr<SharedRefBase> mThis;
};

// Base class of every interface.
class ICInterface : public SharedRefBase {
  public:
    // asBinder() returns the binder through which other processes reach the object. isRemote()
    // returns true if the object itself is in another process.
    virtual SpAIBinder asBinder() = 0;
    virtual bool isRemote() = 0;
    // Called by the platform's command-line tools.
    virtual binder_status_t dump(int fd, const char** args, uint32_t numArgs);
    virtual binder_status_t handleShellCommand(int in, int out, int err, const char** argv,
                                               uint32_t argc);
};

// Base class of implementations of INTERFACE.
template <typename INTERFACE>
class BnCInterface : public INTERFACE {
  public:
    // Returns the same binder for as long as there is a strong reference to it.
    SpAIBinder asBinder() final {
        const std::lock_guard lock(mMutex);
        SpAIBinder binder = mWeakBinder.promote();
        if (binder.get() == nullptr) {
            binder = createBinder();
            mWeakBinder.set(AIBinder_Weak_new(binder.get()));
        }
        return binder;
    }
    bool isRemote() final { return false; }

  protected:
    virtual SpAIBinder createBinder() = 0;

  private:
    std::mutex mMutex;
    ScopedAIBinder_Weak mWeakBinder GUARDED_BY(mMutex);
};

}  // namespace ndk
