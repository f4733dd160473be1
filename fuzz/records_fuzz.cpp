// What comes over the bus from a process that is not trusted: records of any shape are refused or
// become ours whole, and one that the service takes in lies in memory that is there.
#include <host/platform/BufferLayout.h>
#include <host/vppd/Records.h>
#include <host/vppservice/ImportedBuffer.h>

#include <fuzzer/FuzzedDataProvider.h>
#include <sys/stat.h>

#include <tuple>

#include "support.h"

namespace {

namespace vpp = qoz::host::vppd::vpp;
using namespace qoz::host;
using vppd::BusBuffer;
using vppd::BusHandle;
using vppd::BusMeta;
using vppd::fromBus;
using vppd::toBus;

constexpr const char* kNames[] = {"vpp.metabuf.mv.fw", "vpp.metabuf.mv.bw", "vpp.metabuf.scale.0p5",
                                  ""};

constexpr uint32_t bytesOf(uint32_t width, uint32_t height) {
    return static_cast<uint32_t>(nv12Layout(width, height).size);
}

// One shape of ports, so that lengths that fit it can be found.
constexpr vppservice::PortSizes kSizes{{48, 33}, {96, 66}};
constexpr uint32_t kVectors = fieldWidth(kSizes.input.width) * fieldHeight(kSizes.input.height);
constexpr uint32_t kFieldBytes = kVectors * sizeof(MotionVector);
constexpr uint32_t kLengths[] = {
    0, bytesOf(48, 33), bytesOf(48, 34), bytesOf(96, 66), kFieldBytes, 4096};

void require(bool holds) {
    if (!holds) abort();
}

class Reader {
  public:
    Reader(const uint8_t* data, size_t size) : mData(data, size) {}

    template <typename Number>
    Number number() {
        return mData.ConsumeIntegral<Number>();
    }
    bool flag() { return mData.ConsumeBool(); }
    // Mostly as few as are allowed, now and then more.
    size_t count(size_t most) {
        const bool beyond = number<uint8_t>() == 0xFF;
        return beyond ? most + 1 : mData.ConsumeIntegralInRange<size_t>(0, 2);
    }
    // Most often one that fits.
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

  private:
    // Memory, a descriptor of something else, or none.
    sdbus::UnixFd descriptor() {
        const uint8_t what = number<uint8_t>();
        if (what == 0) return {};
        if (what == 1) return sdbus::UnixFd(STDERR_FILENO);
        const int fd = memfd_create("record", MFD_CLOEXEC);
        require(fd >= 0 && ftruncate(fd, length()) == 0);
        return {fd, sdbus::adopt_fd};
    }

    FuzzedDataProvider mData;
};

auto memoryOf(const std::vector<sdbus::UnixFd>& fds) {
    std::vector<std::pair<dev_t, ino_t>> all;
    for (const sdbus::UnixFd& fd : fds) {
        struct stat file = {};
        require(fstat(fd.get(), &file) == 0);
        all.emplace_back(file.st_dev, file.st_ino);
    }
    return all;
}

// All that a record says, descriptors by what they stand for.
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

// Touches both ends of both planes; a picture that is not all there ends the run.
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

void serve(Reader& in, const vpp::VppBuffer& buffer) {
    vppservice::BufferImporter receiver;
    vppservice::ImportedBuffer received;
    const bool isOutput = in.flag();
    const auto port = isOutput ? vpp::VppPort::OUTPUT : vpp::VppPort::INPUT;
    if (receiver.receive(port, kSizes, buffer, &received) != vpp::VppError::VPP_OK) return;
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

void readBuffer(Reader& in) {
    BusBuffer sent = in.buffer();
    BusBuffer copy = sent;
    const auto buffer = fromBus(std::move(copy));
    if (!buffer) return;
    require(contentOf(toBus(*buffer)) == contentOf(sent));
    serve(in, *buffer);
}

void readControl(Reader& in) {
    vppd::BusAis ais{
        in.number<int32_t>(), in.number<int32_t>(), in.number<int32_t>(), in.number<int32_t>(),
        in.number<int32_t>(), in.number<int32_t>(), in.number<int32_t>(), {}};
    for (size_t n = in.count(64); n > 0; --n)
        ais.get<7>().emplace_back(in.name(), in.number<int32_t>());
    if (const auto control = fromBus(ais)) require(toBus(*control) == ais);

    std::vector<vppd::BusSegment> sent(in.count(1024));
    for (auto& segment : sent) {
        segment = {in.number<int32_t>(),
                   in.number<int32_t>(),
                   in.number<int32_t>(),
                   in.number<int64_t>(),
                   in.flag(),
                   in.flag(),
                   in.number<int32_t>(),
                   in.number<int32_t>(),
                   in.number<int32_t>(),
                   in.number<int32_t>()};
    }
    if (const auto segments = fromBus(sent)) require(toBus(*segments) == sent);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    if (in.flag()) {
        readBuffer(in);
    } else {
        readControl(in);
    }
    return 0;
}
