// SPDX-License-Identifier: Apache-2.0
// Makes records from the bytes of a fuzzer, with any content that an untrusted process may send.
#pragma once

#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <host/platform/BufferLayout.h>
#include <host/vppd/Records.h>
#include <host/vppservice/ImportedBuffer.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

namespace qoz::fuzz {

using namespace qoz::host;
using vppd::BusBuffer;
using vppd::BusHandle;
using vppd::BusMeta;

constexpr const char* kNames[] = {"vpp.metabuf.mv.fw", "vpp.metabuf.mv.bw", "vpp.metabuf.scale.0p5",
                                  ""};

constexpr uint32_t bytesOf(uint32_t width, uint32_t height) {
    return static_cast<uint32_t>(nv12Layout(width, height).size);
}

// The sizes of the ports are fixed, so that the fuzzer can find lengths that fit them.
constexpr vppservice::PortSizes kSizes{{48, 33}, {96, 66}};
constexpr uint32_t kVectors = fieldWidth(kSizes.input.width) * fieldHeight(kSizes.input.height);
constexpr uint32_t kFieldBytes = kVectors * sizeof(MotionVector);
constexpr uint32_t kLengths[] = {
    0, bytesOf(48, 33), bytesOf(48, 34), bytesOf(96, 66), kFieldBytes, 4096};

inline void require(bool holds) {
    if (!holds) abort();
}

// Consumes the bytes of one input. Every function consumes a few bytes and returns a value made
// from them.
class RecordReader {
  public:
    RecordReader(const uint8_t* data, size_t size) : mData(data, size) {}

    template <typename Number>
    Number number() {
        return mData.ConsumeIntegral<Number>();
    }
    bool flag() { return mData.ConsumeBool(); }
    // Returns a number of list entries: usually 0 to 2, and sometimes one more than the limit
    // `most`.
    size_t count(size_t most) {
        const bool beyond = number<uint8_t>() == 0xFF;
        return beyond ? most + 1 : mData.ConsumeIntegralInRange<size_t>(0, 2);
    }
    // Returns a length that usually fits a buffer of the ports.
    uint32_t length() {
        const uint32_t any = number<uint32_t>();
        return any > 0xFF ? any : kLengths[any % std::size(kLengths)] + any / 64;
    }
    std::string name() {
        if (flag()) return mData.PickValueInArray(kNames);
        return std::string(count(255) > 2 ? 256 : number<uint8_t>() % 3, 'n');
    }
    BusHandle handle() {
        std::vector<sdbus::UnixFd> fds;
        for (size_t n = count(16); n > 0; --n)
            fds.push_back(descriptor());
        return {std::move(fds), std::vector<int32_t>(count(64), number<int32_t>())};
    }
    BusMeta meta() {
        return {name(),   handle(), length(), number<uint32_t>(),
                length(), length(), length(), number<uint32_t>()};
    }
    BusBuffer buffer() {
        BusHandle pixels = handle();
        BusHandle aux = handle();
        std::vector<BusMeta> metas;
        for (size_t n = count(16) + flag(); n > 0; --n)
            metas.push_back(meta());
        return {std::move(pixels),  length(),           length(),         length(),
                length(),           std::move(aux),     length(),         length(),
                length(),           length(),           std::move(metas), number<uint32_t>(),
                number<uint64_t>(), number<uint64_t>(), number<int64_t>()};
    }

    vppd::BusAis ais() {
        vppd::BusAis control{
            number<int32_t>(), number<int32_t>(), number<int32_t>(), number<int32_t>(),
            number<int32_t>(), number<int32_t>(), number<int32_t>(), {}};
        for (size_t n = count(64); n > 0; --n)
            control.get<7>().emplace_back(name(), number<int32_t>());
        return control;
    }
    std::vector<vppd::BusSegment> segments() {
        std::vector<vppd::BusSegment> all(count(1024));
        for (auto& segment : all)
            segment = {number<int32_t>(),
                       number<int32_t>(),
                       number<int32_t>(),
                       number<int64_t>(),
                       flag(),
                       flag(),
                       number<int32_t>(),
                       number<int32_t>(),
                       number<int32_t>(),
                       number<int32_t>()};
        return all;
    }
    bool more() { return mData.remaining_bytes() > 0; }

  private:
    // Returns a descriptor of memory, which is usually sealed, a descriptor of another file, or
    // none.
    sdbus::UnixFd descriptor() {
        const uint8_t what = number<uint8_t>();
        if (what == 0) return {};
        if (what == 1) return sdbus::UnixFd(STDERR_FILENO);
        const int fd = memfd_create("record", MFD_CLOEXEC | MFD_ALLOW_SEALING);
        require(fd >= 0 && ftruncate(fd, length()) == 0);
        const int seals = what == 2 ? F_SEAL_GROW : F_SEAL_GROW | F_SEAL_SHRINK;
        if (what != 3) require(fcntl(fd, F_ADD_SEALS, seals) == 0);
        return {fd, sdbus::adopt_fd};
    }

    FuzzedDataProvider mData;
};

}  // namespace qoz::fuzz
