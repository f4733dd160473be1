#pragma once

#include <android/binder_auto_utils.h>

#include <cstdint>
#include <memory>

namespace ndk {

// Base of binder objects: made with make(), owned by std::shared_ptr from the start.
class SharedRefBase : public std::enable_shared_from_this<SharedRefBase> {
  public:
    SharedRefBase() = default;
    virtual ~SharedRefBase() = default;

    SharedRefBase(const SharedRefBase&) = delete;
    SharedRefBase& operator=(const SharedRefBase&) = delete;

    template <class T, class... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        return std::shared_ptr<T>(new T(std::forward<Args>(args)...));
    }
};

// Base of every interface.
class ICInterface : public SharedRefBase {
  public:
    virtual SpAIBinder asBinder() = 0;
    virtual bool isRemote() = 0;
    virtual binder_status_t dump(int fd, const char** args, uint32_t numArgs);
    virtual binder_status_t handleShellCommand(int in, int out, int err, const char** argv,
                                               uint32_t argc);

    // The object behind a binder of this process; null when there is none.
    static std::shared_ptr<ICInterface> asInterface(AIBinder* binder);
};

// Base of the native side of INTERFACE.
template <typename INTERFACE>
class BnCInterface : public INTERFACE {
  public:
    SpAIBinder asBinder() override { return createBinder(); }
    bool isRemote() override { return false; }

  protected:
    virtual SpAIBinder createBinder() = 0;
};

}  // namespace ndk

// A new binder, with one reference, for a local object.
AIBinder* AIBinder_fromLocalInterface(const std::shared_ptr<ndk::ICInterface>& object);
