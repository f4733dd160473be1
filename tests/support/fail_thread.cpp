// SPDX-License-Identifier: Apache-2.0
// Loaded before a program: the thread of the number that QOZ_FAIL_THREAD names cannot be had.
#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*body)(void*), void* argument) noexcept {
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto real = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    static const char* const number = getenv("QOZ_FAIL_THREAD");
    static std::atomic<int> count{0};
    if (number != nullptr && ++count == atoi(number)) return EAGAIN;
    return real(thread, attributes, body, argument);
}
