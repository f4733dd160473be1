// SPDX-License-Identifier: Apache-2.0
// Replaces pthread_create() with a version that can fail. A test that it is linked into selects the
// threads that fail with failThreads(). In any other program the environment variable
// QOZ_FAIL_THREAD has the number of the one that fails.
#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "FailThread.h"

namespace {

int numberFromEnvironment() {
    const char* number = getenv("QOZ_FAIL_THREAD");
    return number == nullptr ? 0 : atoi(number);
}

std::atomic<bool> gArmed{numberFromEnvironment() != 0};
// The number of threads to be created up to and including the first that fails.
std::atomic<int> gUntilFailure{numberFromEnvironment()};
std::atomic<bool> gOnce{true};

bool failsNow() {
    if (!gArmed) return false;
    const int left = --gUntilFailure;
    return gOnce ? left == 0 : left <= 0;
}

}  // namespace

namespace qoz::test {

void failThreads(int number, bool once) {
    gOnce = once;
    if (number != 0) gUntilFailure = number;
    gArmed = number != 0;
}

bool hasThreadFailed() {
    return gUntilFailure <= 0;
}

}  // namespace qoz::test

// A sanitizer's own, which has to know every thread; null without one.
extern "C" __attribute__((weak)) int __interceptor_pthread_create(pthread_t*, const pthread_attr_t*,
                                                                  void* (*)(void*), void*);

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*body)(void*), void* argument) {
    using Create = decltype(&pthread_create);
    static const auto create = __interceptor_pthread_create != nullptr
                                   ? &__interceptor_pthread_create
                                   : reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return failsNow() ? EAGAIN : create(thread, attributes, body, argument);
}
