// SPDX-License-Identifier: Apache-2.0
// Tests of memory that is sent to the service: which memory it accepts, how long it keeps a
// mapping, and sizes whose product overflows.
#include <sys/mman.h>

#include <algorithm>
#include <fstream>

#include "support/VppdPeers.h"

namespace qoz::test {
namespace {

// Creates memory with these flags, this size and these seals. Returns -1 if this machine does not
// support it.
int memory(unsigned flags, off_t bytes, int seals) {
    const int fd = memfd_create("hostile", MFD_CLOEXEC | flags);
    if (fd < 0) return -1;
    EXPECT_EQ(ftruncate(fd, bytes), 0);
    EXPECT_TRUE(seals == 0 || fcntl(fd, F_ADD_SEALS, seals) == 0);
    return fd;
}

TEST_F(VppdPeers, MemoryThatCouldShrinkIsRefused) {
    LogCapture quiet;
    HostilePeer peer(bus.address());
    const std::string session = peer.newOpenSession(kSize);
    const auto good = frame(kSize);
    const auto length = static_cast<off_t>(sizeOf(good));
    const struct {
        const char* what;
        int fd;
    } cases[] = {
        {"not sealed", memory(0, length, 0)},
        {"may shrink", memory(MFD_ALLOW_SEALING, length, F_SEAL_GROW)},
        {"may grow", memory(MFD_ALLOW_SEALING, length, F_SEAL_SHRINK)},
        {"too small", memory(MFD_ALLOW_SEALING, 4096, F_SEAL_GROW | F_SEAL_SHRINK)},
        {"of huge pages",
         memory(MFD_ALLOW_SEALING | MFD_HUGETLB, 2 << 20, F_SEAL_GROW | F_SEAL_SHRINK)},
        {"no memory", open("/proc/self/exe", O_RDONLY | O_CLOEXEC)},
    };
    for (const auto& c : cases) {
        if (c.fd < 0) continue;  // this machine has no huge pages
        VppBuffer sent = record(good, 1 | kOutputBit, 1);
        sent.pixelHandle.fds[0].set(c.fd);
        EXPECT_EQ(peer.callSession(session, "QueueBuf", int32_t{1}, host::vppd::toBus(sent)),
                  number(VppError::VPP_ERR_PARAM))
            << c.what;
    }
}

// Returns the number of graphic buffers that the process has mapped.
size_t buffersMappedBy(pid_t process) {
    std::ifstream maps("/proc/" + std::to_string(process) + "/maps");
    size_t count = 0;
    for (std::string line; std::getline(maps, line);)
        count += line.find("/memfd:graphic-buffer") != std::string::npos ? 1 : 0;
    return count;
}

// The client sends new buffers with every frame, unlike a component, so that the service would
// collect mappings if it kept them.
TEST_F(VppdPeers, MappingsEndWithTheirBuffers) {
    const auto recorder = ndk::SharedRefBase::make<SessionRecorder>();
    const auto session = newSession();
    VppError result = VppError::VPP_ERR;
    session->initSession(0, recorder, &result);
    session->setCtrlVppMode(kFrameMode, &result);
    for (const VppPort side : {VppPort::INPUT, VppPort::OUTPUT})
        session->setParameter(side, port(kSize), &result);
    session->open(&result);
    ASSERT_EQ(result, VppError::VPP_OK);
    const pid_t pid = bus.servicePid().value_or(0);
    size_t most = 0;
    for (int n = 1; n <= 60; ++n) {
        const auto timestamp = static_cast<uint64_t>(n) * 1000;
        session->queueBuf(VppPort::OUTPUT, record(frame(kSize), n | kOutputBit, 1), &result);
        session->queueBuf(VppPort::INPUT, record(frame(kSize), n, timestamp), &result);
        ASSERT_TRUE(recorder->await("output " + std::to_string(n) + " "));
        most = std::max(most, buffersMappedBy(pid));
    }
    EXPECT_LE(most, 3U) << "more than a source, its reference and an output";
    session->close(&result);
    EXPECT_EQ(buffersMappedBy(pid), 0U);
}

// Sizes whose product overflows must fail instead of allocating too little memory.
TEST(GraphicBuffers, OfSizesWhoseProductWrapsHaveNoMemory) {
    const std::pair<uint32_t, uint32_t> sizes[] = {{UINT32_MAX, UINT32_MAX},
                                                   {2147437308U, 2147529989U},
                                                   {UINT32_MAX, 1},
                                                   {1U << 31, 1U << 31}};
    for (const auto& [width, height] : sizes)
        for (const int32_t format : {kRgba, kNv12})
            EXPECT_NE(buffer(width, height, format)->initCheck(), android::OK)
                << width << "x" << height;
}

}  // namespace
}  // namespace qoz::test
