// SPDX-License-Identifier: Apache-2.0
// Tests of the two pools of internal buffers.
#include "pipeline/Align.h"
#include "pipeline/BufferPool.h"
#include "support/Fixture.h"

namespace qoz::test {
namespace {

constexpr auto kNoFit = "requestYuvBuffer : buffer is not compatible, clear all existing buffers";

using android::align;
static_assert(align(541, 2) == 542 && align(540, 2) == 540 && align(1, 16) == 16);
static_assert(align(0, 8) == 0 && align(7, 1) == 7 && align(7, 0) == 7);
static_assert(align(0xFFFFFFFF, 2) == 0);

class Pools : public ComponentTest {
  protected:
    void SetUp() override {
        ComponentTest::SetUp();
        make();
    }

    void TearDown() override {
        fwOut = bwOut = dsOut = nullptr;
        ComponentTest::TearDown();
    }

    bool request(sp<GraphicBuffer>* out, uint32_t usage = 0x300, uint32_t width = 64) {
        return peer().requestYuv(out, {true, width, 64, kNv12, usage});
    }

    // Makes the entry under `key` free; `held` is null for a key without an entry.
    void freeYuv(uint64_t key, const sp<GraphicBuffer>& held) {
        if (held != nullptr) peer().yuvMap()[key] = held;
        peer().freeYuv().insert(key);
    }

    void freeSide(uint64_t key, const sp<GraphicBuffer>& fw, const sp<GraphicBuffer>& bw,
                  const sp<GraphicBuffer>& ds) {
        peer().extradataMap()[key] = {fw, bw, ds};
        peer().freeExtradata().insert(key);
    }

    bool requestSide(bool mv, bool ds, uint32_t dsHeight = 32) {
        return peer().requestExtradata(&fwOut, &bwOut, {mv, 4, 4, kRgba, 0x300}, &dsOut,
                                       {ds, 32, dsHeight, kNv12, 0x300});
    }

    static sp<GraphicBuffer> vectors() { return buffer(4, 4, kRgba); }
    static sp<GraphicBuffer> half() { return buffer(32, 32, kNv12); }

    sp<GraphicBuffer> fwOut, bwOut, dsOut;
};

TEST_F(Pools, AnEmptyPoolAllocates) {
    sp<GraphicBuffer> out;
    ASSERT_TRUE(request(&out));
    EXPECT_EQ(std::tuple(out->getWidth(), out->getHeight(), out->getPixelFormat(), out->getUsage()),
              std::tuple(64U, 64U, kNv12, 0x300UL));
    EXPECT_TRUE(peer().yuvMap().empty() && peer().freeYuv().empty());
    EXPECT_EQ(log.count("requestYuvBuffer : allocate yuv buffer:64x64"), 1);
    EXPECT_FALSE(request(nullptr));
    EXPECT_FALSE(peer().requestYuv(&out, {}));
    EXPECT_EQ(log.errors("requestYuvBuffer : invalid buffer args"), 1);
    EXPECT_EQ(log.errors("No need to request buffer, should not happen"), 1);
}

TEST_F(Pools, TheOldestFreeBufferIsReused) {
    const auto oldest = buffer(64, 64, kNv12);
    freeYuv(200, buffer(64, 64, kNv12));
    freeYuv(100, oldest);
    peer().yuvMap()[50] = buffer(64, 64, kNv12);  // the VPP holds it, so it is not free
    const auto made = host::counters().graphicBuffersMade;
    sp<GraphicBuffer> out;
    ASSERT_TRUE(request(&out));
    EXPECT_EQ(out, oldest);
    EXPECT_EQ(host::counters().graphicBuffersMade, made);
    EXPECT_EQ(peer().freeYuv(), (std::set<uint64_t>{200}));
    EXPECT_FALSE(peer().yuvMap().contains(100));
    EXPECT_EQ(peer().yuvMap().size(), 2);
}

TEST_F(Pools, ABufferThatDoesNotFitDiscardsAllFreeOnes) {
    int misfit = 0;
    for (const auto& drawn : {buffer(32, 64, kNv12), buffer(64, 32, kNv12), buffer(64, 64, kRgba),
                              buffer(64, 64, kNv12, 0x100), sp<GraphicBuffer>()}) {
        SCOPED_TRACE(++misfit);
        freeYuv(100, drawn);
        freeYuv(200, buffer(64, 64, kNv12));
        peer().yuvMap()[300] = buffer(32, 32, kNv12);  // the VPP holds it, so it remains
        sp<GraphicBuffer> out;
        ASSERT_TRUE(request(&out));
        EXPECT_NE(out, drawn);
        EXPECT_TRUE(peer().freeYuv().empty());
        EXPECT_EQ(peer().yuvMap().size(), 1);
        EXPECT_TRUE(peer().yuvMap().contains(300));
        EXPECT_EQ(log.errors(kNoFit), misfit);
    }
}

TEST_F(Pools, SideBuffersAreRequestedByKind) {
    ASSERT_TRUE(requestSide(false, true));
    EXPECT_TRUE(fwOut == nullptr && bwOut == nullptr);
    EXPECT_EQ(dsOut->getHeight(), 32);
    dsOut = nullptr;
    ASSERT_TRUE(requestSide(true, false));
    EXPECT_TRUE(fwOut != nullptr && bwOut != nullptr && dsOut == nullptr);
    log.clear();
    EXPECT_TRUE(requestSide(false, false));
    EXPECT_EQ(log.errors("no extradata needs to be requested"), 1);
    EXPECT_FALSE(peer().requestExtradata(&fwOut, nullptr, {}, &dsOut, {}));
}

TEST_F(Pools, AMissingSideBufferIsMadeAndTheRestReused) {
    const auto fw = vectors(), bw = vectors();
    freeSide(100, fw, bw, nullptr);
    freeSide(200, vectors(), vectors(), half());
    ASSERT_TRUE(requestSide(true, true));
    EXPECT_EQ(fwOut, fw);
    EXPECT_EQ(bwOut, bw);
    EXPECT_NE(dsOut, nullptr);
    EXPECT_EQ(peer().freeExtradata(), (std::set<uint64_t>{200}));
    const auto ds = half();
    freeSide(150, nullptr, nullptr, ds);
    ASSERT_TRUE(requestSide(true, true));
    EXPECT_EQ(dsOut, ds);
    EXPECT_NE(fwOut, fw);
    EXPECT_EQ(peer().freeExtradata(), (std::set<uint64_t>{200}));
}

TEST_F(Pools, ASideBufferThatDoesNotFitDiscardsAllFreeEntries) {
    const std::string prefix = "requestExtradataBuffer : ";
    const std::string misfit = " not compatible, reallocate new buffer";
    freeSide(100, vectors(), vectors(), half());
    freeSide(200, vectors(), vectors(), half());
    peer().extradataMap()[300] = {vectors(), vectors(), nullptr};
    ASSERT_TRUE(requestSide(true, true, 64));
    EXPECT_EQ(dsOut->getHeight(), 64);
    EXPECT_TRUE(peer().freeExtradata().empty());
    EXPECT_EQ(peer().extradataMap().size(), 1);
    EXPECT_EQ(log.errors(prefix + "downscale buffer is" + misfit), 1);
    freeSide(100, buffer(8, 8, kRgba), vectors(), half());
    ASSERT_TRUE(requestSide(true, false));
    EXPECT_EQ(log.errors(prefix + "mv buffers are" + misfit), 1);
}

TEST_F(Pools, AnEntryWithoutItsBackwardVectorsFailsAndStays) {
    freeSide(100, vectors(), nullptr, half());
    EXPECT_FALSE(requestSide(true, true));
    EXPECT_EQ(log.errors("failed to allocate fwBuffer or bwBuffer"), 1);
    EXPECT_EQ(peer().freeExtradata(), (std::set<uint64_t>{100}));
    EXPECT_TRUE(peer().extradataMap().contains(100));
}

}  // namespace
}  // namespace qoz::test
