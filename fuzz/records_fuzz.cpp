// SPDX-License-Identifier: Apache-2.0
// Fuzzes the conversion of records from the bus. Every record must be refused or converted without
// loss, and if the service imports a buffer, all of its pixels and vectors must be in mapped
// memory.
#include <sys/stat.h>

#include <tuple>

#include "RecordReader.h"

namespace {

namespace vpp = qoz::host::vppd::vpp;
using namespace qoz::fuzz;
using vppd::fromBus;
using vppd::toBus;

auto memoryOf(const std::vector<sdbus::UnixFd>& fds) {
    std::vector<std::pair<dev_t, ino_t>> all;
    for (const sdbus::UnixFd& fd : fds) {
        struct stat file = {};
        require(fstat(fd.get(), &file) == 0);
        all.emplace_back(file.st_dev, file.st_ino);
    }
    return all;
}

// The functions called contentOf() return everything in a part of a record for comparison.
// Descriptors are compared by the memory that they refer to.
auto contentOf(const BusHandle& h) {
    return std::tuple(memoryOf(h.get<0>()), h.get<1>());
}
auto contentOf(const BusMeta& m) {
    return std::tuple(m.get<0>(), contentOf(m.get<1>()), m.get<2>(), m.get<3>(), m.get<4>(),
                      m.get<5>(), m.get<6>(), m.get<7>());
}
auto contentOf(const BusBuffer& b) {
    std::vector<decltype(contentOf(b.get<10>()[0]))> metas;
    for (const BusMeta& meta : b.get<10>())
        metas.push_back(contentOf(meta));
    return std::tuple(contentOf(b.get<0>()), b.get<1>(), b.get<2>(), b.get<3>(), b.get<4>(),
                      contentOf(b.get<5>()), b.get<6>(), b.get<7>(), b.get<8>(), b.get<9>(), metas,
                      b.get<11>(), b.get<12>(), b.get<13>(), b.get<14>());
}

// Reads the first and the last pixel of the planes. If they are not in mapped memory, the run ends
// with a crash.
template <typename Planes>
void touch(const Planes& planes) {
    if (planes.luma == nullptr) return;
    const auto last = [&](const auto* plane, size_t rows, size_t bytes) {
        return plane[(rows - 1) * planes.stride + bytes - 1];
    };
    volatile uint8_t seen = planes.luma[0];
    seen = last(planes.luma, planes.size.height, planes.size.width);
    seen = last(planes.chroma, planes.chromaRows(), planes.chromaBytes());
    (void)seen;
}

// Imports a buffer as the service does and reads the memory of the buffers in it.
void serve(RecordReader& in, const vpp::VppBuffer& buffer) {
    vppservice::BufferImporter receiver;
    vppservice::ImportedBuffer received;
    const bool isOutput = in.flag();
    const auto port = isOutput ? vpp::VppPort::OUTPUT : vpp::VppPort::INPUT;
    if (receiver.take(port, kSizes, buffer, &received) != vpp::VppError::VPP_OK) return;
    if (isOutput) {
        touch(received.outputCanvas());
        return;
    }
    touch(received.inputView());
    touch(received.halfView());
    if (const auto motion = received.motion()) {
        volatile auto seen = motion.forward[kVectors - 1].texture;
        seen = motion.backward[kVectors - 1].texture;
        (void)seen;
    }
}

void readBuffer(RecordReader& in) {
    BusBuffer sent = in.buffer();
    BusBuffer copy = sent;
    const auto buffer = fromBus(std::move(copy));
    if (!buffer) return;
    require(contentOf(toBus(*buffer)) == contentOf(sent));
    serve(in, *buffer);
}

void readControl(RecordReader& in) {
    const vppd::BusAis ais = in.ais();
    if (const auto control = fromBus(ais)) require(toBus(*control) == ais);
    const std::vector<vppd::BusSegment> sent = in.segments();
    if (const auto segments = fromBus(sent)) require(toBus(*segments) == sent);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RecordReader in(data, size);
    if (in.flag()) {
        readBuffer(in);
    } else {
        readControl(in);
    }
    return 0;
}
