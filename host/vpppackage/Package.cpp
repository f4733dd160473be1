// SPDX-License-Identifier: Apache-2.0
// The functions of the generated classes that the headers only declare. On a device the library of
// the interface package contains them. Nothing is marshalled here, because a call within one
// process is a plain virtual call.
#include <aidl/vendor/vuq/hardware/vpp/BnVpp.h>
#include <aidl/vendor/vuq/hardware/vpp/BnVppCallbacks.h>
#include <aidl/vendor/vuq/hardware/vpp/BnVppService.h>
#include <host/platform/LocalBinder.h>

namespace aidl::vendor::vuq::hardware::vpp {
namespace {

// Returns the object behind a binder, or null if the binder is null or has another interface.
template <typename Interface>
std::shared_ptr<Interface> interfaceBehind(const ::ndk::SpAIBinder& binder) {
    return std::static_pointer_cast<Interface>(
        ::qoz::host::localObject(binder, Interface::descriptor));
}

template <typename Interface>
::ndk::ScopedAStatus tellVersion(int32_t* version) {
    *version = Interface::version;
    return ::ndk::ScopedAStatus::ok();
}

template <typename Interface>
::ndk::ScopedAStatus tellHash(std::string* hash) {
    *hash = Interface::hash;
    return ::ndk::ScopedAStatus::ok();
}

}  // namespace

const char* IVppService::descriptor = "vendor.vuq.hardware.vpp.IVppService";

IVppService::IVppService() = default;
IVppService::~IVppService() = default;

std::shared_ptr<IVppService> IVppService::fromBinder(const ::ndk::SpAIBinder& binder) {
    return interfaceBehind<IVppService>(binder);
}

BnVppService::BnVppService() = default;
BnVppService::~BnVppService() = default;

::ndk::ScopedAStatus BnVppService::getInterfaceVersion(int32_t* _aidl_return) {
    return tellVersion<IVppService>(_aidl_return);
}

::ndk::ScopedAStatus BnVppService::getInterfaceHash(std::string* _aidl_return) {
    return tellHash<IVppService>(_aidl_return);
}

::ndk::SpAIBinder BnVppService::createBinder() {
    return ::qoz::host::newLocalBinder(ref(), descriptor);
}

const char* IVpp::descriptor = "vendor.vuq.hardware.vpp.IVpp";

IVpp::IVpp() = default;
IVpp::~IVpp() = default;

std::shared_ptr<IVpp> IVpp::fromBinder(const ::ndk::SpAIBinder& binder) {
    return interfaceBehind<IVpp>(binder);
}

BnVpp::BnVpp() = default;
BnVpp::~BnVpp() = default;

::ndk::ScopedAStatus BnVpp::getInterfaceVersion(int32_t* _aidl_return) {
    return tellVersion<IVpp>(_aidl_return);
}

::ndk::ScopedAStatus BnVpp::getInterfaceHash(std::string* _aidl_return) {
    return tellHash<IVpp>(_aidl_return);
}

::ndk::SpAIBinder BnVpp::createBinder() {
    return ::qoz::host::newLocalBinder(ref(), descriptor);
}

const char* IVppCallbacks::descriptor = "vendor.vuq.hardware.vpp.IVppCallbacks";

IVppCallbacks::IVppCallbacks() = default;
IVppCallbacks::~IVppCallbacks() = default;

std::shared_ptr<IVppCallbacks> IVppCallbacks::fromBinder(const ::ndk::SpAIBinder& binder) {
    return interfaceBehind<IVppCallbacks>(binder);
}

BnVppCallbacks::BnVppCallbacks() = default;
BnVppCallbacks::~BnVppCallbacks() = default;

::ndk::ScopedAStatus BnVppCallbacks::getInterfaceVersion(int32_t* _aidl_return) {
    return tellVersion<IVppCallbacks>(_aidl_return);
}

::ndk::ScopedAStatus BnVppCallbacks::getInterfaceHash(std::string* _aidl_return) {
    return tellHash<IVppCallbacks>(_aidl_return);
}

::ndk::SpAIBinder BnVppCallbacks::createBinder() {
    return ::qoz::host::newLocalBinder(ref(), descriptor);
}

}  // namespace aidl::vendor::vuq::hardware::vpp
