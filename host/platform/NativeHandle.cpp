// SPDX-License-Identifier: Apache-2.0
#include <cutils/native_handle.h>
#include <host/platform/Faults.h>
#include <host/platform/ResourceCounters.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

using qoz::host::resourceCounters;

namespace {
constexpr int kMaxEntries = 1024;  // the largest number of descriptors, and that of integers
}

native_handle_t* native_handle_create(int numFds, int numInts) {
    if (numFds < 0 || numInts < 0 || numFds > kMaxEntries || numInts > kMaxEntries) return nullptr;
    if (qoz::host::takeFault("native_handle_create")) return nullptr;
    const size_t entries = static_cast<size_t>(numFds) + static_cast<size_t>(numInts);
    auto* handle =
        static_cast<native_handle_t*>(calloc(1, sizeof(native_handle_t) + entries * sizeof(int)));
    if (handle == nullptr) return nullptr;
    handle->version = sizeof(native_handle_t);
    handle->numFds = numFds;
    handle->numInts = numInts;
    resourceCounters().nativeHandlesLive.fetch_add(1, std::memory_order_relaxed);
    return handle;
}

int native_handle_delete(native_handle_t* handle) {
    if (handle == nullptr) return 0;
    if (handle->version != sizeof(native_handle_t)) return -EINVAL;
    free(handle);
    resourceCounters().nativeHandlesLive.fetch_sub(1, std::memory_order_relaxed);
    return 0;
}

int native_handle_close(const native_handle_t* handle) {
    if (handle == nullptr) return 0;
    if (handle->version != sizeof(native_handle_t)) return -EINVAL;
    for (int i = 0; i < handle->numFds; ++i)
        close(handle->data[i]);
    return 0;
}
