// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/ImportedBuffer.h"

#include <aidl/android/hardware/common/NativeHandle.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

namespace qoz::host::vppservice {
namespace {

using ::aidl::android::hardware::common::NativeHandle;

// The names of the side buffers.
constexpr char kForwardName[] = "vpp.metabuf.mv.fw";
constexpr char kBackwardName[] = "vpp.metabuf.mv.bw";
constexpr char kHalfName[] = "vpp.metabuf.scale.0p5";
constexpr size_t kMostSideBuffers = 3;

FrameSize halfOf(FrameSize output) {
    return {evenUp(output.width / 2), evenUp(output.height / 2)};
}

uint64_t frameBytes(FrameSize size) {
    return nv12Layout(size.width, size.height).size;
}

uint64_t fieldBytes(FrameSize source) {
    return uint64_t{fieldWidth(source.width)} * fieldHeight(source.height) * sizeof(MotionVector);
}

// The lengths of allocations are given in whole pages, whatever the length of the memory itself.
uint64_t pageUp(uint64_t bytes) {
    static const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    return (bytes + page - 1) / page * page;
}

bool holdsOne(const NativeHandle& handle) {
    return handle.fds.size() == 1 && handle.ints.empty();
}

bool isEmpty(const NativeHandle& handle) {
    return handle.fds.empty() && handle.ints.empty();
}

// A client that runs out of handles sends an empty entry. The frame is usable without that side
// buffer.
bool isBlank(const vpp::VppMetaBuffer& side) {
    return side.metaName.empty() && isEmpty(side.metaHandle);
}

// Each side buffer may come once, with one descriptor. Unknown names are refused.
bool sideBuffersFit(const VppBuffer& sent) {
    if (sent.metaBuffers.size() > kMostSideBuffers) return false;
    unsigned seen = 0;
    for (const vpp::VppMetaBuffer& side : sent.metaBuffers) {
        if (isBlank(side)) continue;
        const unsigned mark = side.metaName == kForwardName    ? 1
                              : side.metaName == kBackwardName ? 2
                              : side.metaName == kHalfName     ? 4
                                                               : 0;
        if (mark == 0 || (seen & mark) != 0 || !holdsOne(side.metaHandle)) return false;
        seen |= mark;
    }
    return true;
}

// Checks everything in a record that does not need its memory.
bool shapeFits(VppPort port, const VppBuffer& sent) {
    if (!holdsOne(sent.pixelHandle) || !isEmpty(sent.auxHandle)) return false;
    if (unsignedOf(sent.pixelFilledLen) > unsignedOf(sent.pixelAllocLen)) return false;
    if (port == VppPort::OUTPUT) return sent.metaBuffers.empty() && sent.pixelFilledLen == 0;
    return sideBuffersFit(sent);
}

// Translates errno of a failed mapping.
VppError errorOf(int number) {
    switch (number) {
        case EMFILE:
        case ENFILE:
            return VppError::VPP_ERR_RESOURCES;
        case ENOMEM:
            return VppError::VPP_ERR_NO_MEM;
        default:
            return VppError::VPP_ERR_PARAM;
    }
}

// Copies all numbers of a record; the handles are left out.
void copyScalars(const VppBuffer& from, VppBuffer* to) {
    to->pixelOffset = from.pixelOffset;
    to->pixelAllocLen = from.pixelAllocLen;
    to->pixelFilledLen = from.pixelFilledLen;
    to->pixelSize = from.pixelSize;
    to->auxOffset = from.auxOffset;
    to->auxAllocLen = from.auxAllocLen;
    to->auxFilledLen = from.auxFilledLen;
    to->auxSize = from.auxSize;
    to->reserved32 = from.reserved32;
    to->timestamp = from.timestamp;
    to->reserved64 = from.reserved64;
    to->cookie = from.cookie;
}

// A piece of memory that a record names: its descriptor and the bytes that are needed.
struct Memory {
    int fd;
    uint64_t offset;
    uint64_t need;                      // bytes needed from the offset on
    uint32_t allocated;                 // length in bytes, as the record states it
    std::shared_ptr<Mapping>* mapping;  // receives the mapping
};

// Accepts memory with pages of ordinary size only. Huge pages may turn out to be unavailable when
// they are first touched, which would end the process.
bool hasOrdinaryPages(int fd) {
    struct statfs system = {};
    return fstatfs(fd, &system) == 0 && system.f_type == TMPFS_MAGIC;
}

// Returns whether every byte that is needed exists and cannot be removed.
bool holdsForGood(const Memory& memory) {
    constexpr int kSealed = F_SEAL_SHRINK | F_SEAL_GROW;
    const int seals = fcntl(memory.fd, F_GET_SEALS);
    if (seals < 0 || (seals & kSealed) != kSealed || !hasOrdinaryPages(memory.fd)) return false;
    struct stat file = {};
    if (fstat(memory.fd, &file) != 0) return false;
    const auto length = static_cast<uint64_t>(std::max<off_t>(file.st_size, 0));
    const uint64_t end = memory.offset + memory.need;
    return end <= length && end <= memory.allocated && memory.allocated <= pageUp(length);
}

// Returns whether the allocation has exactly the pages that the port's size takes.
bool isLaidOutFor(const Memory& memory) {
    return pageUp(memory.allocated) == pageUp(memory.offset + memory.need);
}

// Maps all memories. On an error, some may be mapped; their owner drops them.
VppError map(const std::vector<Memory>& memories, bool writable) {
    for (const Memory& memory : memories) {
        *memory.mapping = Mapping::make(memory.fd, memory.offset, memory.need, writable);
        if (*memory.mapping == nullptr) return errorOf(errno);
    }
    return VppError::VPP_OK;
}

// Returns the memories of a record, the pixels first.
std::vector<Memory> memoriesOf(const VppBuffer& sent, VppPort port, ImportedBuffer* out) {
    const FrameSize size = port == VppPort::OUTPUT ? out->sizes.output : out->sizes.input;
    std::vector<Memory> all{{sent.pixelHandle.fds[0].get(), unsignedOf(sent.pixelOffset),
                             frameBytes(size), unsignedOf(sent.pixelAllocLen), &out->pixels}};
    for (const vpp::VppMetaBuffer& side : sent.metaBuffers) {
        if (isBlank(side)) continue;
        const bool isHalf = side.metaName == kHalfName;
        const uint64_t need =
            isHalf ? frameBytes(halfOf(out->sizes.output)) : fieldBytes(out->sizes.input);
        all.push_back({side.metaHandle.fds[0].get(), 0, need, unsignedOf(side.metaAllocLen),
                       isHalf                          ? &out->half
                       : side.metaName == kForwardName ? &out->forward
                                                       : &out->backward});
    }
    return all;
}

}  // namespace

Nv12View ImportedBuffer::halfView() const {
    if (half == nullptr) return {};
    return planesAt<const uint8_t>(half->ready(), halfOf(sizes.output));
}

MotionFields ImportedBuffer::motion() const {
    if (forward == nullptr || backward == nullptr) return {};
    return {reinterpret_cast<const MotionVector*>(forward->ready()),
            reinterpret_cast<const MotionVector*>(backward->ready())};
}

void ImportedBuffer::dropSides() {
    for (auto* side : {&forward, &backward, &half})
        side->reset();
}

VppError BufferImporter::take(VppPort port, const PortSizes& sizes, const VppBuffer& sent,
                              ImportedBuffer* out) const {
    if (!shapeFits(port, sent)) return VppError::VPP_ERR_PARAM;
    const bool isOutput = port == VppPort::OUTPUT;
    if (!isOutput && unsignedOf(sent.pixelFilledLen) < frameBytes(sizes.input))
        return VppError::VPP_ERR_PARAM;
    ImportedBuffer made;
    made.sizes = sizes;
    copyScalars(sent, &made.record);
    std::vector<Memory> memories = memoriesOf(sent, port, &made);
    if (!std::all_of(memories.begin(), memories.end(), holdsForGood))
        return VppError::VPP_ERR_PARAM;
    // Memory laid out for another size would be read and written at wrong places. Pixels of this
    // kind are refused, and side buffers are left out.
    if (!isLaidOutFor(memories[0])) return VppError::VPP_ERR_PARAM;
    std::erase_if(memories, [](const Memory& memory) { return !isLaidOutFor(memory); });
    if (mQuota != nullptr) {
        uint64_t bytes = 0;
        for (const Memory& memory : memories) {
            bytes += memory.need;
        }
        auto reservation = mQuota->reserve({.mappedBytes = bytes});
        if (!reservation) return VppError::VPP_ERR_RESOURCES;
        made.mapped = std::move(*reservation);
    }
    const VppError error = map(memories, isOutput);
    if (error == VppError::VPP_OK) *out = std::move(made);
    return error;
}

void BufferImporter::hold(VppPort port, const VppBuffer& sent, ImportedBuffer* imported) const {
    for (const Memory& memory : memoriesOf(sent, port, imported)) {
        if (*memory.mapping == nullptr) continue;  // it was left out
        const bool isPixels = memory.mapping == &imported->pixels;
        const auto use = isPixels ? HeldMemory::Use() : unsignedOf(sent.timestamp);
        (*memory.mapping)->keep(mHeld->hold(memory.fd, use));
    }
}

}  // namespace qoz::host::vppservice
