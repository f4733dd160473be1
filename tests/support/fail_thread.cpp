// SPDX-License-Identifier: Apache-2.0
// Stands in for pthread_create: one thread cannot be had. Linked into a test, which names it by
// failThread(), or loaded before a program, for which QOZ_FAIL_THREAD names it.
#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "FailThread.h"
#include "Sanitized.h"

namespace {

int numberFromEnvironment() {
    const char* number = getenv("QOZ_FAIL_THREAD");
    return number == nullptr ? 0 : atoi(number);
}

// Threads up to and with the one that fails; 0: none fails any more.
std::atomic<int> gUntilFailure{numberFromEnvironment()};

}  // namespace

namespace qoz::test {

void failThread(int number) {
    gUntilFailure = number;
}

}  // namespace qoz::test

#ifndef QOZ_SANITIZED
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*body)(void*), void* argument) noexcept {
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto real = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    if (gUntilFailure > 0 && --gUntilFailure == 0) return EAGAIN;
    return real(thread, attributes, body, argument);
}
#endif
