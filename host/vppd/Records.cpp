// SPDX-License-Identifier: Apache-2.0
#include "host/vppd/Records.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace qoz::host::vppd {
namespace {

using ::aidl::android::hardware::common::NativeHandle;

// The limits are far above the needs of a client: one descriptor for each handle, three side
// buffers for each frame, and one segment for each change of settings that has not taken effect
// yet.
constexpr size_t kMostDescriptors = 16;
constexpr size_t kMostInts = 64;
constexpr size_t kMostMetas = 16;
constexpr size_t kMostSegments = 1024;
constexpr size_t kMostKeys = 64;
constexpr size_t kLongestName = 255;

BusHandle toBus(const NativeHandle& handle) {
    std::vector<sdbus::UnixFd> fds;
    for (const ndk::ScopedFileDescriptor& fd : handle.fds) {
        const int copy = fcntl(fd.get(), F_DUPFD_CLOEXEC, 0);
        if (copy < 0) throw std::system_error(errno, std::generic_category(), "descriptor");
        fds.emplace_back(copy, sdbus::adopt_fd);
    }
    return {std::move(fds), handle.ints};
}

// The functions called fits() return whether a part of a record is within its limits.
bool fits(const BusHandle& handle) {
    return handle.get<0>().size() <= kMostDescriptors && handle.get<1>().size() <= kMostInts &&
           std::all_of(handle.get<0>().begin(), handle.get<0>().end(),
                       [](const sdbus::UnixFd& fd) { return fd.isValid(); });
}

bool fits(const BusMeta& meta) {
    return meta.get<0>().size() <= kLongestName && fits(meta.get<1>());
}

bool fits(uint32_t allocated, uint32_t filled) {
    return filled <= allocated;
}

// The functions called take() move a part of a record out of its bus form.
NativeHandle take(BusHandle& handle) {
    NativeHandle taken;
    taken.fds.reserve(handle.get<0>().size());
    for (sdbus::UnixFd& fd : handle.get<0>()) {
        taken.fds.emplace_back(fd.release());
        fcntl(taken.fds.back().get(), F_SETFD, FD_CLOEXEC);
    }
    taken.ints = std::move(handle.get<1>());
    return taken;
}

BusMeta toBus(const vpp::VppMetaBuffer& meta) {
    return {meta.metaName,  toBus(meta.metaHandle), meta.metaAllocLen, meta.reserved1,
            meta.reserved2, meta.reserved3,         meta.reserved4,    meta.reserved5};
}

vpp::VppMetaBuffer take(BusMeta& from) {
    vpp::VppMetaBuffer meta;
    meta.metaName = std::move(from.get<0>());
    meta.metaHandle = take(from.get<1>());
    meta.metaAllocLen = from.get<2>();
    meta.reserved1 = from.get<3>();
    meta.reserved2 = from.get<4>();
    meta.reserved3 = from.get<5>();
    meta.reserved4 = from.get<6>();
    meta.reserved5 = from.get<7>();
    return meta;
}

}  // namespace

BusBuffer toBus(const vpp::VppBuffer& b) {
    std::vector<BusMeta> metas;
    for (const vpp::VppMetaBuffer& meta : b.metaBuffers) {
        metas.push_back(toBus(meta));
    }
    return {toBus(b.pixelHandle), b.pixelOffset, b.pixelAllocLen, b.pixelFilledLen, b.pixelSize,
            toBus(b.auxHandle),   b.auxOffset,   b.auxAllocLen,   b.auxFilledLen,   b.auxSize,
            std::move(metas),     b.reserved32,  b.timestamp,     b.reserved64,     b.cookie};
}

uint64_t descriptorsIn(const BusBuffer& buffer) {
    uint64_t count = buffer.get<0>().get<0>().size() + buffer.get<5>().get<0>().size();
    for (const BusMeta& meta : buffer.get<10>()) {
        count += meta.get<1>().get<0>().size();
    }
    return count;
}

std::optional<vpp::VppBuffer> fromBus(BusBuffer&& from) {
    auto& metas = from.get<10>();
    const bool good =
        fits(from.get<0>()) && fits(from.get<5>()) && fits(from.get<2>(), from.get<3>()) &&
        fits(from.get<7>(), from.get<8>()) && metas.size() <= kMostMetas &&
        std::all_of(metas.begin(), metas.end(), [](const BusMeta& meta) { return fits(meta); });
    if (!good) return std::nullopt;
    vpp::VppBuffer buffer;
    buffer.pixelHandle = take(from.get<0>());
    buffer.pixelOffset = from.get<1>();
    buffer.pixelAllocLen = from.get<2>();
    buffer.pixelFilledLen = from.get<3>();
    buffer.pixelSize = from.get<4>();
    buffer.auxHandle = take(from.get<5>());
    buffer.auxOffset = from.get<6>();
    buffer.auxAllocLen = from.get<7>();
    buffer.auxFilledLen = from.get<8>();
    buffer.auxSize = from.get<9>();
    for (BusMeta& meta : metas) {
        buffer.metaBuffers.push_back(take(meta));
    }
    buffer.reserved32 = from.get<11>();
    buffer.timestamp = from.get<12>();
    buffer.reserved64 = from.get<13>();
    buffer.cookie = from.get<14>();
    return buffer;
}

BusPort toBus(const vpp::VppPortParam& param) {
    return {param.height, param.width, param.stride, param.scanlines, param.colorFormat};
}

vpp::VppPortParam fromBus(const BusPort& param) {
    return {param.get<0>(), param.get<1>(), param.get<2>(), param.get<3>(), param.get<4>()};
}

BusAis toBus(const vpp::VppCtrlAis& c) {
    std::vector<sdbus::Struct<std::string, int32_t>> keys;
    for (const vpp::VppKeyValueInt& key : c.keyValues) {
        keys.emplace_back(key.key, key.value);
    }
    return {c.mode,      c.reserved1, c.reserved2, c.reserved3,
            c.reserved4, c.reserved5, c.param,     std::move(keys)};
}

std::optional<vpp::VppCtrlAis> fromBus(const BusAis& c) {
    if (c.get<7>().size() > kMostKeys) return std::nullopt;
    vpp::VppCtrlAis control{c.get<0>(), c.get<1>(), c.get<2>(), c.get<3>(),
                            c.get<4>(), c.get<5>(), c.get<6>(), {}};
    for (const auto& key : c.get<7>()) {
        if (key.get<0>().size() > kLongestName) return std::nullopt;
        control.keyValues.push_back({key.get<0>(), key.get<1>()});
    }
    return control;
}

std::vector<BusSegment> toBus(const std::vector<vpp::VppCtrlFrcSegment>& segments) {
    std::vector<BusSegment> all;
    all.reserve(segments.size());
    for (const vpp::VppCtrlFrcSegment& s : segments) {
        all.emplace_back(s.mode, s.interpLevel, s.interpFactor, s.startTimestamp, s.flag1, s.flag2,
                         s.param1, s.reserved1, s.reserved2, s.param2);
    }
    return all;
}

std::optional<std::vector<vpp::VppCtrlFrcSegment>> fromBus(const std::vector<BusSegment>& from) {
    if (from.size() > kMostSegments) return std::nullopt;
    std::vector<vpp::VppCtrlFrcSegment> segments;
    segments.reserve(from.size());
    for (const BusSegment& s : from) {
        segments.push_back({s.get<0>(), s.get<1>(), s.get<2>(), s.get<3>(), s.get<4>(), s.get<5>(),
                            s.get<6>(), s.get<7>(), s.get<8>(), s.get<9>()});
    }
    return segments;
}

}  // namespace qoz::host::vppd
