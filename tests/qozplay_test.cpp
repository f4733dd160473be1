// SPDX-License-Identifier: Apache-2.0
// Tests of the parts of the player: reading and writing clips, parsing, counting frames and
// buffers, verification and reports.
#include <functional>
#include <sstream>
#include <vector>

#include "client/Ledger.h"
#include "qozplay/media/MediaReader.h"
#include "qozplay/media/MediaWriter.h"
#include "qozplay/report/Verifier.h"
#include "qozplay/stream/FrameTracker.h"
#include "qozplay_files.h"

namespace qozplay {
namespace {

std::string messageOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const BadInput& error) {
        return error.what();
    }
    return "nothing was refused";
}

TEST(MediaReader, RefusesDamageAndWhatItCannotShow) {
    const Folder folder;
    const std::string header = "YUV4MPEG2 W4 H4 F25:1\n";
    const std::string frame = "FRAME\n" + grey({4, 4}, 'a');
    const std::pair<std::string, const char*> cases[] = {
        {"RIFF W4 H4\n", "it is not a clip"},
        {"YUV4MPEG2 W0 H4 F30:1\n", "cannot read"},
        {"", "is empty"},
        {header + frame + frame.substr(0, 10), "frame 1 is cut short"},
        {header + frame + "FRAME\n", "frame 1 is cut short"},
    };
    const StopRequest stop;
    for (const auto& [bytes, message] : cases) {
        const std::string file = folder.write("bad.y4m", bytes);
        const auto readAll = [&] {
            MediaReader source(file, {}, {30, 1}, stop);
            for (std::vector<uint8_t> rgba(64); source.next(rgba.data(), 16);)
                continue;
        };
        EXPECT_THAT(messageOf(readAll), HasSubstr(message));
    }
    EXPECT_THAT(messageOf([&] {
                    MediaReader(folder.file(""), {}, {30, 1}, stop);
                }),
                HasSubstr("it is a directory"));
}

// The reader uses the matrix and the range that the clip states. If it states none, its height
// decides.
TEST(MediaReader, ShowsColoursByTheClipsMatrixAndRangeAndOddSizes) {
    const Folder folder;
    struct Row {
        Size size;
        const char* tags;
        uint8_t luma, v;
        int red, green;
    };
    for (const Row& row : {
             Row{{5, 3}, "", 16, 128, 0, 0},
             Row{{5, 3}, "", 235, 128, 255, 255},
             Row{{5, 3}, "", 126, 240, 255, 38},    // BT.601: 128 - 0.714 x 126
             Row{{6, 720}, "", 126, 240, 255, 69},  // BT.709: 128 - 0.468 x 126
             Row{{5, 3}, " XCOLORRANGE=FULL", 16, 128, 16, 16},
         }) {
        const size_t pixels = size_t{row.size.width} * row.size.height;
        std::string picture = grey(row.size, static_cast<char>(row.luma));
        const size_t chroma = (picture.size() - pixels) / 2;
        std::fill(picture.end() - static_cast<std::ptrdiff_t>(chroma), picture.end(),
                  static_cast<char>(row.v));
        const StopRequest stop;
        MediaReader source(
            folder.write("clip.y4m", format("YUV4MPEG2 W%u H%u F25:1%s\nFRAME\n", row.size.width,
                                            row.size.height, row.tags) +
                                         picture),
            {}, {30, 1}, stop);
        const size_t stride = row.size.width * 4 + 4;  // the reader must not write to the padding
        std::vector<uint8_t> rgba(stride * row.size.height, 77);
        ASSERT_TRUE(source.next(rgba.data(), stride));
        const uint8_t* last = &rgba[stride * (row.size.height - 1) + 4 * (row.size.width - 1)];
        EXPECT_NEAR(last[0], row.red, 3) << row.tags << +row.luma;
        EXPECT_NEAR(last[1], row.green, 3) << row.tags << +row.luma;
        EXPECT_EQ(last[4], 77);
        EXPECT_FALSE(source.next(rgba.data(), stride));
    }
}

TEST(MediaReader, KeepsRowsOfRawFramesApartAndRefusesAnEndWithinOne) {
    const Folder folder;
    const StopRequest stop;
    MediaReader source(folder.write("x.rgba", "AAAABBBBCCCCDDDDAAAABB"), Size{2, 2}, {30, 1}, stop);
    std::string rgba(24, '.');
    ASSERT_TRUE(source.next(reinterpret_cast<uint8_t*>(rgba.data()), 12));
    EXPECT_EQ(rgba, "AAAABBBB....CCCCDDDD....");
    EXPECT_THAT(messageOf([&] { source.next(reinterpret_cast<uint8_t*>(rgba.data()), 12); }),
                HasSubstr("cut short"));
}

TEST(MediaWriter, WritesEverySampleOfTheFirstSizeUnderALineThatReadsBack) {
    const Folder folder;
    const auto bytes = [](const std::string& text) {
        return reinterpret_cast<const uint8_t*>(text.data());
    };
    // Rows of the source are four bytes apart, as even chroma rows need for an odd width.
    const std::string luma = "abc.ABC.123.", chroma = "uvUVxyXY", larger(36, 'm');
    const StopRequest stop;
    const ClipInfo info{{}, {30000, 1001}, {}, {128, 117}};
    MediaWriter writer(folder.file("out.y4m"), info, nullptr, stop);
    EXPECT_TRUE(writer.take({0, true, {bytes(luma), bytes(chroma), 4, {3, 3}}}));
    EXPECT_TRUE(writer.take({1, false, {bytes(larger), bytes(larger), 6, {6, 6}}}));
    EXPECT_FALSE(std::filesystem::exists(folder.file("out.y4m"))) << "before it is whole";
    writer.finish();
    EXPECT_EQ(writer.scaled(), 1U);
    const std::string written = folder.read("out.y4m");
    EXPECT_THAT(written, testing::StartsWith("YUV4MPEG2 W3 H3 F30000:1001 Ip A128:117 C420jpeg"));
    EXPECT_THAT(written, testing::EndsWith("FRAME\nabcABC123uUxXvVyYFRAME\nmmmmmmmmmmmmmmmmm"));
}

TEST(OutputFile, ReplacesWholeFilesAndNothingElse) {
    const Folder folder;
    const std::string file = folder.write("out", "before");
    const std::string link = folder.file("link");
    std::filesystem::create_symlink(file, link);
    { OutputFile(file).write("dropped"); }
    EXPECT_EQ(folder.read("out"), "before");
    EXPECT_THAT(messageOf([&] { OutputFile{link}; }), HasSubstr("it is a link"));
    EXPECT_THAT(messageOf([&] { OutputFile{folder.file("no/such")}; }), HasSubstr("cannot write"));
    OutputFile full("/dev/full");
    EXPECT_THROW(full.write("x"), SessionFailed);
    std::filesystem::permissions(
        file, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    OutputFile whole(file);
    whole.write("after");
    whole.commit();
    EXPECT_EQ(folder.read("out"), "after");
    EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(file).permissions()), 0600U)
        << "nobody else may read what replaces a file of one's own";
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));
    const auto left = std::distance(std::filesystem::directory_iterator(folder.file("")), {});
    EXPECT_EQ(left, 2) << "the file and the link";
}

TEST(Ledger, FindsWhatIsOff) {
    Ledger ledger;
    EXPECT_TRUE(ledger.queue(0, 1) && ledger.queue(1, 1) && ledger.queue(0, 2));
    EXPECT_FALSE(ledger.queue(0, 2));
    EXPECT_TRUE(ledger.giveBack(0, 1));
    EXPECT_FALSE(ledger.settled());
    EXPECT_FALSE(ledger.giveBack(0, 1)) << "1 is out on port 1";
    EXPECT_FALSE(ledger.giveBack(1, 1)) << "and is no more";
    EXPECT_EQ(ledger.missing(), (std::vector<Ledger::Entry>{{0, 2}}));
    EXPECT_TRUE(ledger.refuse(0, 2));
    EXPECT_FALSE(ledger.refuse(0, 2));
    EXPECT_EQ(ledger.outstanding(), 0U);
    EXPECT_FALSE(ledger.settled());  // all are returned, but one on the wrong port
    const Ledger::Totals totals = ledger.totals();
    EXPECT_EQ((std::vector{totals.queued, totals.returned, totals.doubled, totals.wrongPort,
                           totals.refused}),
              (std::vector<uint64_t>{2, 2, 1, 1, 1}));
}

TEST(FrameTracker, TellsLostFramesFromFlushedOnes) {
    FrameTracker tracker;
    const Clock::time_point start = Clock::now();
    for (const uint64_t timestamp : {0, 10, 20, 30})
        tracker.sent(timestamp, start);
    EXPECT_TRUE(tracker.came(0, start));
    // A frame between 10 and 20 has come out, so 10 is no longer expected.
    EXPECT_FALSE(tracker.came(15, start));
    EXPECT_EQ(tracker.underWay(), 2U);
    EXPECT_TRUE(tracker.came(20, start + std::chrono::milliseconds(7)));
    EXPECT_FALSE(tracker.came(20, start));  // a repeated frame
    tracker.flushed();
    EXPECT_EQ(tracker.underWay(), 0U);
    const FrameTracker::Tally tally = tracker.finish();
    EXPECT_EQ((std::vector{tally.in, tally.source, tally.missing, tally.flushed, tally.backwards}),
              (std::vector<uint64_t>{4, 2, 1, 1, 1}));
    EXPECT_EQ(tally.latencies, (std::vector<double>{0, 7}));
}

// Returns the verifier's violation for a history of these steps: tF/K takes source frame F with K
// interpolated frames expected before it, oT=L is an output frame of time T with luma L (50 by
// default), i is an interruption, and l is a buffer that is not returned. Source frames are 300
// microseconds apart.
std::string violationOf(const std::string& history, std::string* summary) {
    Verifier verifier;
    Ledger ledger;
    std::istringstream words(history);
    for (std::string word; words >> word;) {
        const uint64_t number = std::strtoull(word.c_str() + 1, nullptr, 10);
        const size_t mark = word.find_first_of("/=");
        const double value = mark == std::string::npos ? 50 : std::stod(word.substr(mark + 1));
        if (word[0] == 't') verifier.taken(number, number * 300, static_cast<uint32_t>(value));
        if (word[0] == 'o') verifier.came(number, PictureSummary::flat(value));
        if (word[0] == 'i') verifier.interrupted("flush");
        if (word[0] == 'l') ledger.queue(0, 1);
    }
    verifier.close(ledger);
    *summary = verifier.summary();
    return verifier.violation();
}

TEST(Verifier, NamesTheFirstThingThatIsOff) {
    const std::pair<const char*, const char*> cases[] = {
        {"t0/1 t1/1 o0 o150 o300 t2/2 o400 o500 o600", "2 intervals;"},
        {"t0/1 t1/1 o0=90 o150=53 o300=50", "1 interval;"},
        {"t0/1 i t1/1 o0 o300", "none in 1 (flush)"},
        {"t0/1 t1/1 o0 o150 i t2/1 o600", "1 source frame cleared away"},
        {"t0/1 t1/1 i o0 o300 t2/1 o600",
         "0 of 1 interpolated frames came out before source frame 1"},
        {"", "no source frame came out"},
        {"t0/1 t1/1 o0 o300", "0 of 1 interpolated frames came out before source frame 1"},
        {"t0/2 t1/2 o0 o100 o300", "1 of 2 interpolated frames"},
        {"t0/1 i t1/1 o0 o150 o300", "comes after 0 interpolated frames, and one more"},
        {"t0/1 o0 t1/1 o150 o200", "comes after 1 interpolated frames, and one more"},
        {"t0/1 t1/1 o0 o152 o300", "has the time 0.152 ms, not 0.150 ms"},
        {"t0/1 t1/1 o0 o150 o140 o300", "the frame of 0.140 ms came out after that of 0.150 ms"},
        {"t0/0 t1/0 o0 o0 o300", "the frame of 0.000 ms came out twice"},
        {"t0/0 t1/0 t2/0 o0 o600", "source frame 1 did not come out before"},
        {"t0/0 o0 o300", "after all source frames"},
        {"t0/0 t1/0 o0", "source frame 1 never came out"},
        {"t0/1 t1/1 o0=50 o150=56.2 o300=53", "a mean luma of 56.2, its neighbours 50.0 and 53.0"},
        {"t0/1 t1/1 o0=50 o150=46.8 o300=53", "a mean luma of 46.8"},
        {"t0/0 o0 l", "1 are outstanding"},
    };
    size_t row = 0;
    for (const auto& [history, said] : cases) {
        std::string summary;
        const std::string violation = violationOf(history, &summary);
        EXPECT_EQ(violation.empty(), row++ < 4) << history << ": " << violation;
        EXPECT_THAT(violation.empty() ? summary : violation, HasSubstr(said)) << history;
    }
}

}  // namespace
}  // namespace qozplay
