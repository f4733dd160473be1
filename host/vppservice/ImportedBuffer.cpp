#include "host/vppservice/ImportedBuffer.h"

#include <aidl/android/hardware/common/NativeHandle.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace qoz::host::vppservice {
namespace {

using ::aidl::android::hardware::common::NativeHandle;

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

// Allocations are told in whole pages, whatever the length of the memory behind them.
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

// A client that ran out of handles leaves such an entry behind; the frame is none the worse.
bool isBlank(const vpp::VppMetaBuffer& side) {
    return side.metaName.empty() && isEmpty(side.metaHandle);
}

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

bool shapeFits(VppPort port, const VppBuffer& sent) {
    if (!holdsOne(sent.pixelHandle) || !isEmpty(sent.auxHandle)) return false;
    if (unsignedOf(sent.pixelFilledLen) > unsignedOf(sent.pixelAllocLen)) return false;
    if (port == VppPort::OUTPUT) return sent.metaBuffers.empty() && sent.pixelFilledLen == 0;
    return sideBuffersFit(sent);
}

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

VppError duplicate(const NativeHandle& from, NativeHandle* to) {
    for (const ndk::ScopedFileDescriptor& fd : from.fds) {
        ndk::ScopedFileDescriptor copy(fcntl(fd.get(), F_DUPFD_CLOEXEC, 0));
        if (copy.get() < 0) return errorOf(errno);
        to->fds.push_back(std::move(copy));
    }
    return VppError::VPP_OK;
}

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

VppError copyRecord(const VppBuffer& from, VppBuffer* to) {
    copyScalars(from, to);
    VppError error = duplicate(from.pixelHandle, &to->pixelHandle);
    for (const vpp::VppMetaBuffer& side : from.metaBuffers) {
        if (error != VppError::VPP_OK) break;
        vpp::VppMetaBuffer& copy = to->metaBuffers.emplace_back();
        copy.metaName = side.metaName;
        copy.metaAllocLen = side.metaAllocLen;
        error = duplicate(side.metaHandle, &copy.metaHandle);
    }
    return error;
}

}  // namespace

Nv12View ImportedBuffer::halfView() const {
    if (half == nullptr) return {};
    return planesAt<const uint8_t>(half->data(), halfOf(sizes.output));
}

MotionFields ImportedBuffer::motion() const {
    if (forward == nullptr || backward == nullptr) return {};
    return {reinterpret_cast<const MotionVector*>(forward->data()),
            reinterpret_cast<const MotionVector*>(backward->data())};
}

VppError BufferImporter::receive(VppPort port, const PortSizes& sizes, const VppBuffer& sent,
                                 ImportedBuffer* out) {
    if (!shapeFits(port, sent)) return VppError::VPP_ERR_PARAM;
    out->sizes = sizes;
    VppError error = copyRecord(sent, &out->record);
    if (error == VppError::VPP_OK) error = mapPixels(port, out);
    if (error == VppError::VPP_OK) error = mapSideBuffers(out);
    return error;
}

VppError BufferImporter::mapPixels(VppPort port, ImportedBuffer* out) {
    const VppBuffer& record = out->record;
    const bool isOutput = port == VppPort::OUTPUT;
    const uint64_t bytes = frameBytes(isOutput ? out->sizes.output : out->sizes.input);
    if (!isOutput && unsignedOf(record.pixelFilledLen) < bytes) return VppError::VPP_ERR_PARAM;
    const uint64_t need = unsignedOf(record.pixelOffset) + bytes;
    // Memory laid out for another size would be read and written at the wrong places.
    if (pageUp(unsignedOf(record.pixelAllocLen)) != pageUp(need)) return VppError::VPP_ERR_PARAM;
    return mapWhole(record.pixelHandle.fds[0].get(), need, unsignedOf(record.pixelAllocLen),
                    isOutput, &out->pixels);
}

VppError BufferImporter::mapSideBuffers(ImportedBuffer* out) {
    for (const vpp::VppMetaBuffer& side : out->record.metaBuffers) {
        if (isBlank(side)) continue;
        const bool isHalf = side.metaName == kHalfName;
        const uint64_t need =
            isHalf ? frameBytes(halfOf(out->sizes.output)) : fieldBytes(out->sizes.input);
        std::shared_ptr<Mapping> mapping;
        const VppError error = mapWhole(side.metaHandle.fds[0].get(), need,
                                        unsignedOf(side.metaAllocLen), false, &mapping);
        if (error != VppError::VPP_OK) return error;
        // More memory than this size takes is laid out for another size: of no use here.
        if (pageUp(unsignedOf(side.metaAllocLen)) != pageUp(need)) continue;
        (isHalf                          ? out->half
         : side.metaName == kForwardName ? out->forward
                                         : out->backward) = std::move(mapping);
    }
    return VppError::VPP_OK;
}

VppError BufferImporter::mapWhole(int fd, uint64_t need, uint64_t allocated, bool writable,
                                  std::shared_ptr<Mapping>* out) {
    struct stat file = {};
    if (fstat(fd, &file) != 0 || !S_ISREG(file.st_mode)) return VppError::VPP_ERR_PARAM;
    const auto length = static_cast<uint64_t>(std::max<off_t>(file.st_size, 0));
    if (need > length || need > allocated || allocated > pageUp(length)) {
        return VppError::VPP_ERR_PARAM;
    }
    *out = mMappings.map(fd, file, writable);
    return *out == nullptr ? errorOf(errno) : VppError::VPP_OK;
}

}  // namespace qoz::host::vppservice
