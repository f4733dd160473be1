// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

namespace ndk {

// Base of binder objects: made with make(), owned by std::shared_ptr from the start.
class SharedRefBase {
  public:
    SharedRefBase() = default;
    virtual ~SharedRefBase() = default;

    SharedRefBase(const SharedRefBase&) = delete;
    SharedRefBase& operator=(const SharedRefBase&) = delete;

    // One more owner. Null in the constructor.
    std::shared_ptr<SharedRefBase> ref() { return mThis.lock(); }

    // Null when there is no memory for the object.
    template <class T, class... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        std::shared_ptr<T> made(new T(std::forward<Args>(args)...));
        if (made != nullptr) static_cast<SharedRefBase&>(*made).mThis = made;
        return made;
    }

    static void operator delete(void* object) { ::operator delete(object); }

  private:
    // Private, since make() is the only way to make one.
    static void* operator new(size_t size) noexcept { return ::operator new(size, std::nothrow); }

    std::weak_ptr<SharedRefBase> mThis;
};

// Base of every interface.
class ICInterface : public SharedRefBase {
  public:
    // The binder by which other processes reach the object; and whether it lives in one of them.
    virtual SpAIBinder asBinder() = 0;
    virtual bool isRemote() = 0;
    // Asked for by people, through the platform's tools.
    virtual binder_status_t dump(int fd, const char** args, uint32_t numArgs);
    virtual binder_status_t handleShellCommand(int in, int out, int err, const char** argv,
                                               uint32_t argc);
};

// Base of the native side of INTERFACE.
template <typename INTERFACE>
class BnCInterface : public INTERFACE {
  public:
    // The same binder for as long as anyone holds it.
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
    ScopedAIBinder_Weak mWeakBinder;
};

}  // namespace ndk
