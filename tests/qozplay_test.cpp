// The player's parts: what it reads and refuses, what it writes, how it keeps its accounts.
#include "FrameSource.h"
#include "FrameTracker.h"
#include "Ledger.h"
#include "Script.h"
#include "Sheet.h"
#include "Y4mWriter.h"
#include "qozplay_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace qozplay {
namespace {

using testing::HasSubstr;

std::string messageOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const BadInput& error) {
        return error.what();
    }
    return "nothing was refused";
}

TEST(Y4mHeader, RefusesWhatItCannotShow) {
    const struct {
        const char* line;
        const char* message;
    } cases[] = {
        {"RIFF W4 H4", "is not a y4m clip"},
        {"YUV4MPEG2X W4 H4", "is not a y4m clip"},
        {"", "is not a y4m clip"},
        {"YUV4MPEG2 H4 F30:1", "size of 0"},
        {"YUV4MPEG2 W0 H4 F30:1", "size of 0"},
        {"YUV4MPEG2 W4x H4", "not a whole number"},
        {"YUV4MPEG2 W-4 H4", "not a whole number"},
        {"YUV4MPEG2 W99999 H4", "more than 16384"},
        {"YUV4MPEG2 W4 H4 F0:1", "rate of 0"},
        {"YUV4MPEG2 W4 H4 C422", "not 8-bit 4:2:0"},
        {"YUV4MPEG2 W4 H4 C420p10", "not 8-bit 4:2:0"},
        {"YUV4MPEG2 W4 H4 Cmono", "not 8-bit 4:2:0"},
    };
    for (const auto& c : cases) {
        EXPECT_THAT(messageOf([&] { parseY4mHeader(c.line, "x.y4m"); }), HasSubstr(c.message))
            << c.line;
    }
}

TEST(Y4mHeader, UnderstandsWhatItsOwnLineSays) {
    const Y4mHeader in = parseY4mHeader(
        "YUV4MPEG2 W853 H479 F30000:1001 It A128:117 C420mpeg2 XCOLORRANGE=FULL", "x.y4m");
    std::string line = toLine(in);
    line.pop_back();
    const Y4mHeader out = parseY4mHeader(line, "x.y4m");
    EXPECT_EQ(out.size, (Size{853, 479}));
    EXPECT_EQ(out.rate, (Rate{30000, 1001}));
    EXPECT_EQ(out.aspect, "128:117");
    EXPECT_TRUE(out.fullRange);
}

TEST(Y4mClip, ShowsOddSizesAndThenEnds) {
    const Folder folder;
    const Size size{5, 3};
    // Luma 126 is the middle of 16 to 235, so it is grey 128 on the screen.
    const std::string clip =
        folder.write("odd.y4m", "YUV4MPEG2 W5 H3 F25:1\nFRAME\n" + grey(size, '\x10') +
                                    "FRAME Ix\n" + grey(size, '\x7e'));
    const std::unique_ptr<FrameSource> source = openY4m(clip);
    EXPECT_EQ(source->size(), size);
    constexpr size_t kStride = 24;  // wider than a row: what lies between stays as it is
    std::vector<uint8_t> rgba(kStride * 3, 77);
    for (const int expected : {0, 128}) {
        ASSERT_TRUE(source->next(rgba.data(), kStride));
        for (size_t row = 0; row < 3; ++row) {
            for (size_t x = 0; x < 5; ++x) {
                EXPECT_NEAR(rgba[row * kStride + 4 * x], expected, 2) << row << ", " << x;
            }
            EXPECT_EQ(rgba[row * kStride + 20], 77);
        }
    }
    EXPECT_FALSE(source->next(rgba.data(), kStride));
}

TEST(Clip, RefusesDamage) {
    const Folder folder;
    const std::string header = "YUV4MPEG2 W4 H4 F25:1\n";
    const std::string frame = "FRAME\n" + grey({4, 4}, 'a');
    const struct {
        std::string bytes;
        const char* message;
    } cases[] = {
        {"", "is empty"},
        {"YUV4MPEG2 W4 H4", "middle of a header line"},
        {std::string(5000, 'x'), "no header line"},
        {header + "GARBAGE\n" + frame, "frame 0 does not begin with FRAME"},
        {header + frame + frame.substr(0, 10), "frame 1 is cut short, 4 of its 24 bytes"},
        {header + frame + "FRAME\n", "frame 1 is cut short, 0 of its 24 bytes"},
        {header + frame + "FRA", "middle of a header line"},
    };
    for (const auto& c : cases) {
        const std::string file = folder.write("bad.y4m", c.bytes);
        const std::string message = messageOf([&] {
            const std::unique_ptr<FrameSource> source = openY4m(file);
            std::vector<uint8_t> rgba(64);
            while (source->next(rgba.data(), 16)) {
            }
        });
        EXPECT_THAT(message, HasSubstr(c.message));
    }
}

TEST(RawClip, KeepsRowsApartAndRefusesAnEndWithinAFrame) {
    const Folder folder;
    const std::unique_ptr<FrameSource> source =
        openRaw(folder.write("x.rgba", "AAAABBBBCCCCDDDDAAAABB"), {2, 2}, {30, 1});
    std::string rgba(24, '.');
    ASSERT_TRUE(source->next(reinterpret_cast<uint8_t*>(rgba.data()), 12));
    EXPECT_EQ(rgba, "AAAABBBB....CCCCDDDD....");
    EXPECT_THAT(messageOf([&] { source->next(reinterpret_cast<uint8_t*>(rgba.data()), 12); }),
                HasSubstr("frame 1 is cut short, 6 of its 16 bytes"));
}

TEST(Y4mWriter, WritesEverySampleAndKeepsToTheFirstSize) {
    const Folder folder;
    const std::string luma = "abcABC123";
    const std::string chroma = "uvUVxyXY";
    const auto bytes = [](const std::string& text) {
        return reinterpret_cast<const uint8_t*>(text.data());
    };
    // Rows of the source are four bytes apart, as even chroma rows need for an odd width.
    const std::string spread = "abc.ABC.123.";
    const std::string larger(36, 'm');
    {
        Y4mWriter writer(folder.file("out.y4m"), {});
        EXPECT_TRUE(writer.take({0, true, {bytes(spread), bytes(chroma), 4, {3, 3}}}));
        EXPECT_TRUE(writer.take({1, false, {bytes(larger), bytes(larger), 6, {6, 6}}}));
        writer.finish();
        EXPECT_EQ(writer.scaled(), 1U);
    }
    const std::string file = folder.read("out.y4m");
    const size_t first = file.find("FRAME\n");
    EXPECT_EQ(file.substr(first),
              "FRAME\n" + luma + "uUxX" + "vVyY" + "FRAME\n" + std::string(9 + 8, 'm'));
    EXPECT_EQ(parseY4mHeader(file.substr(0, first - 1), "out").size, (Size{3, 3}));
}

TEST(Script, ReadsChanges) {
    EXPECT_EQ(parseChange("30:interp=2").value, 2U);
    EXPECT_EQ(parseChange("60:upscale=1.5").value, 1U);
    EXPECT_EQ(parseChange("60:upscale=2").value, 2U);
    EXPECT_EQ(parseChange("90:size=960x540").size, (Size{960, 540}));
    EXPECT_EQ(parseChange("120:flush").kind, Change::Kind::Flush);
    EXPECT_EQ(parseChange("120:flush").frame, 120U);
    for (const char* bad :
         {"", "flush", ":flush", "x:flush", "-1:flush", "1:", "1:flush=2", "1:interp",
          "1:interp=", "1:interp=4", "1:upscale=3", "1:size=0x4", "1:size=4", "1:size=4x4x4",
          "1:zoom=2", "1 :flush", "4294967296:flush"}) {
        EXPECT_THAT(messageOf([&] { parseChange(bad); }),
                    testing::StartsWith("--at " + std::string(bad) + ":"))
            << bad;
    }
}

TEST(Script, HandsOutWhatIsDueOnceAndInOrder) {
    Script script({parseChange("9:flush"), parseChange("3:interp=2"), parseChange("3:flush")});
    EXPECT_TRUE(script.due(2).empty());
    const std::vector<Change> due = script.due(3);
    ASSERT_EQ(due.size(), 2U);
    EXPECT_EQ(due[0].text, "interp=2");
    EXPECT_EQ(due[1].text, "flush");
    EXPECT_TRUE(script.due(3).empty());
    EXPECT_EQ(script.left().size(), 1U);
}

TEST(Ledger, FindsWhatIsOff) {
    Ledger ledger;
    EXPECT_TRUE(ledger.lend(0, 1));
    EXPECT_TRUE(ledger.lend(1, 1));
    EXPECT_TRUE(ledger.lend(0, 2));
    EXPECT_FALSE(ledger.lend(0, 2));
    EXPECT_EQ(ledger.giveBack(0, 1), Ledger::Verdict::Good);
    EXPECT_FALSE(ledger.settled());
    EXPECT_EQ(ledger.giveBack(0, 1), Ledger::Verdict::WrongPort);  // 1 is out on port 1
    EXPECT_EQ(ledger.giveBack(1, 1), Ledger::Verdict::Doubled);
    EXPECT_EQ(ledger.missing(), (std::vector<Ledger::Entry>{{0, 2}}));
    EXPECT_TRUE(ledger.refuse(0, 2));
    EXPECT_FALSE(ledger.refuse(0, 2));
    EXPECT_EQ(ledger.outstanding(), 0U);
    EXPECT_FALSE(ledger.settled());  // all home, but not by the right ways
    EXPECT_EQ(ledger.totals().lent, 2U);
    EXPECT_EQ(ledger.totals().returned, 2U);
    EXPECT_EQ(ledger.totals().doubled, 1U);
    EXPECT_EQ(ledger.totals().wrongPort, 1U);
    EXPECT_EQ(ledger.totals().refused, 1U);
}

TEST(FrameTracker, TellsLostFramesFromFlushedOnes) {
    FrameTracker tracker;
    const Clock::time_point start = Clock::now();
    for (const uint64_t timestamp : {0, 10, 20, 30}) {
        tracker.sent(timestamp, start);
    }
    EXPECT_TRUE(tracker.came(0, start));
    EXPECT_FALSE(tracker.came(15, start));  // made between 10 and 20: nobody waits for 10 now
    EXPECT_EQ(tracker.underWay(), 2U);
    EXPECT_TRUE(tracker.came(20, start + std::chrono::milliseconds(7)));
    EXPECT_FALSE(tracker.came(20, start));  // the same again
    tracker.flushed();
    EXPECT_EQ(tracker.underWay(), 0U);
    const FrameTracker::Tally tally = tracker.finish();
    EXPECT_EQ(tally.in, 4U);
    EXPECT_EQ(tally.real, 2U);
    EXPECT_EQ(tally.missing, 1U);
    EXPECT_EQ(tally.flushed, 1U);
    EXPECT_EQ(tally.backwards, 1U);
    EXPECT_EQ(tally.latencies, (std::vector<double>{0, 7}));
}

TEST(Sheet, NeedsAFrameToShow) {
    const Folder folder;
    const Sheet sheet("nothing", std::nullopt);
    EXPECT_THROW(sheet.save(folder.file("x.png")), SessionFailed);
}

// Width and height as the head of a PNG file has them.
Size pngSize(const std::string& bytes) {
    const auto number = [&](size_t at) {
        uint32_t value = 0;
        for (size_t i = 0; i < 4; ++i) {
            value = value << 8 | static_cast<uint8_t>(bytes.at(at + i));
        }
        return value;
    };
    return {number(16), number(20)};
}

// The sheet of `intervals` source intervals with `made` frames in each.
Size sheetSize(uint64_t intervals, uint64_t made,
               std::optional<std::pair<uint64_t, uint64_t>> window) {
    const Folder folder;
    const std::vector<uint8_t> pixels(8 * 12, 128);
    Sheet sheet("t", window);
    for (uint64_t time = 0; time <= intervals * (made + 1); ++time) {
        const bool real = time % (made + 1) == 0;
        sheet.take({time, real, {pixels.data(), pixels.data() + 64, 8, {8, 8}}});
    }
    sheet.save(folder.file("x.png"));
    return pngSize(folder.read("x.png"));
}

TEST(Sheet, HasARowForEachIntervalItKeeps) {
    const Size two = sheetSize(2, 1, std::nullopt);
    EXPECT_EQ(sheetSize(9, 1, std::nullopt), two);
    EXPECT_EQ(sheetSize(9, 1, std::make_pair(4, 8)), two);
    EXPECT_LT(sheetSize(1, 1, std::nullopt).height, two.height);
    EXPECT_GT(sheetSize(9, 1, std::make_pair(4, 10)).height, two.height);
    EXPECT_EQ(sheetSize(2, 3, std::nullopt).height, two.height);
    EXPECT_GT(sheetSize(2, 3, std::nullopt).width, two.width);
}

}  // namespace
}  // namespace qozplay
