// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <host/platform/BufferLayout.h>
#include <host/platform/Faults.h>
#include <host/platform/ResourceCounters.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <ui/GraphicBuffer.h>
#include <ui/GraphicBufferMapper.h>
#include <unistd.h>

#include <atomic>

namespace android {
namespace {

using qoz::host::resourceCounters;

// The native handle of a graphic buffer has one descriptor, of its memory, followed by these
// integers: the allocation size and the address of the mapping in this process. Both are 64-bit
// values and are split into two integers each.
enum HandleInt { kSizeLow, kSizeHigh, kMapLow, kMapHigh, kHandleInts };

uint64_t join(int low, int high) {
    return static_cast<uint32_t>(low) | static_cast<uint64_t>(static_cast<uint32_t>(high)) << 32;
}

void split(uint64_t value, int* low, int* high) {
    *low = static_cast<int>(static_cast<uint32_t>(value));
    *high = static_cast<int>(static_cast<uint32_t>(value >> 32));
}

// Returns whether a handle has the shape of the handle of a graphic buffer.
bool ourHandle(buffer_handle_t handle) {
    return handle != nullptr && handle->numFds == 1 && handle->numInts == kHandleInts;
}

uint64_t allocationSize(buffer_handle_t handle) {
    return join(handle->data[1 + kSizeLow], handle->data[1 + kSizeHigh]);
}

size_t pageRounded(size_t bytes) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return (bytes + page - 1) / page * page;
}

// Creates shared memory and returns its descriptor, or -1. The size is sealed: if a process could
// shrink the memory, other processes that have mapped it would crash on access.
int makeMemory(size_t bytes) {
    const int fd = memfd_create("graphic-buffer", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0) return -1;
    const bool sealed = ftruncate(fd, static_cast<off_t>(bytes)) == 0 &&
                        fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) == 0;
    if (sealed) return fd;
    close(fd);
    return -1;
}

// Creates and maps memory of `bytes` and returns a handle for it, or null if any step fails. The
// memory stays mapped for the life of the buffer, so that lock() only returns the address.
native_handle_t* allocate(size_t bytes) {
    if (bytes == 0 || qoz::host::takeFault("allocate")) return nullptr;
    const int fd = makeMemory(bytes);
    if (fd < 0) return nullptr;
    void* mapped = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    native_handle_t* handle = mapped == MAP_FAILED ? nullptr : native_handle_create(1, kHandleInts);
    if (handle == nullptr) {
        if (mapped != MAP_FAILED) munmap(mapped, bytes);
        close(fd);
        return nullptr;
    }
    handle->data[0] = fd;
    split(bytes, &handle->data[1 + kSizeLow], &handle->data[1 + kSizeHigh]);
    split(reinterpret_cast<uintptr_t>(mapped), &handle->data[1 + kMapLow],
          &handle->data[1 + kMapHigh]);
    return handle;
}

void* mapping(buffer_handle_t handle) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a handle can contain only integers
    return reinterpret_cast<void*>(join(handle->data[1 + kMapLow], handle->data[1 + kMapHigh]));
}

}  // namespace

GraphicBuffer::GraphicBuffer(
    uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
    // NOLINTNEXTLINE(performance-unnecessary-value-param): as on the platform
    uint32_t inUsage, std::string /*requestorName*/) {
    const size_t pixels = qoz::host::pixelBytes(inWidth, inHeight, inFormat);
    const size_t bytes = pageRounded(pixels);
    handle = allocate(bytes);
    if (handle == nullptr) {
        mInitCheck = pixels == 0 ? BAD_VALUE : NO_MEMORY;
        return;
    }
    width = static_cast<int>(inWidth);
    height = static_cast<int>(inHeight);
    stride = qoz::host::isNv12(inFormat) ? static_cast<int>(qoz::host::evenUp(inWidth)) : width;
    format = inFormat;
    usage = inUsage;
    mInitCheck = OK;
    resourceCounters().graphicBuffersMade.fetch_add(1, std::memory_order_relaxed);
    resourceCounters().graphicBuffersLive.fetch_add(1, std::memory_order_relaxed);
    resourceCounters().graphicBytesLive.fetch_add(bytes, std::memory_order_relaxed);
}

GraphicBuffer::~GraphicBuffer() {
    if (handle == nullptr) return;
    const uint64_t bytes = allocationSize(handle);
    munmap(mapping(handle), bytes);
    native_handle_close(handle);
    native_handle_delete(const_cast<native_handle_t*>(handle));
    resourceCounters().graphicBuffersLive.fetch_sub(1, std::memory_order_relaxed);
    resourceCounters().graphicBytesLive.fetch_sub(bytes, std::memory_order_relaxed);
}

status_t GraphicBuffer::lock(uint32_t /*inUsage*/, void** vaddr) {
    if (handle == nullptr) return NO_INIT;
    *vaddr = mapping(handle);
    return OK;
}

status_t GraphicBuffer::unlock() {
    return handle == nullptr ? NO_INIT : OK;
}

status_t GraphicBufferMapper::getAllocationSize(buffer_handle_t bufferHandle,
                                                uint64_t* outAllocationSize) {
    if (!ourHandle(bufferHandle)) return BAD_VALUE;
    *outAllocationSize = allocationSize(bufferHandle);
    return OK;
}

}  // namespace android
