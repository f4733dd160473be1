// SPDX-License-Identifier: Apache-2.0
#include "qozplay/run/Outputs.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <system_error>
#include <utility>

namespace qozplay {
namespace {

// Returns true if both names denote the same file, whether or not it exists. Devices and pipes are
// excepted, since nothing in them can be overwritten: two options may name the same one.
bool isSame(const std::string& one, const std::string& other) {
    namespace fs = std::filesystem;
    if (one.empty() || other.empty()) return false;
    if (one == "-" || other == "-") return one == other;
    std::error_code error;
    if (fs::equivalent(one, other, error)) return fs::is_regular_file(one, error);
    return fs::weakly_canonical(fs::absolute(one), error) ==
               fs::weakly_canonical(fs::absolute(other), error) &&
           !fs::exists(one, error);
}

// Throws BadInput if two options name the same file, since one would overwrite the other.
void refuseCollisions(const Options& options) {
    const std::array<std::pair<const char*, const std::string*>, 6> named{
        {{"-i", &options.input},
         {"-o", &options.output},
         {"--sheet", &options.sheet},
         {"--vectors", &options.vectors},
         {"--trace", &options.trace},
         {"--stats", &options.stats}}};
    for (size_t k = 1; k < named.size(); ++k) {
        for (size_t i = options.input == "-" ? 1 : 0; i < k; ++i) {  // a pipe in and a pipe out
            if (!isSame(*named[i].second, *named[k].second)) continue;
            throw BadInput(*named[k].second + " is named by " + named[i].first + " and by " +
                           named[k].first + ", and would be overwritten; name another file");
        }
    }
}

std::unique_ptr<OutputFile> opened(const std::string& path) {
    return path.empty() ? nullptr : std::make_unique<OutputFile>(path);
}

// The time window of the sheet: Sheet::kIntervals intervals with the source frame `middle` in the
// centre.
Sheet::Window sheetWindow(std::optional<uint64_t> middle, AVRational rate) {
    if (!middle) return std::nullopt;
    const uint64_t first = *middle - std::min<uint64_t>(*middle, Sheet::kIntervals / 2);
    const auto at = [&](uint64_t frame) {
        return static_cast<uint64_t>(timestampOf(rate, frame) / 1000);
    };
    return std::make_pair(at(first), at(first + Sheet::kIntervals));
}

// The PSNR in dB of each interpolated frame that --truth has scored, by timestamp.
std::map<uint64_t, double> psnrOf(const RunStats& stats) {
    std::map<uint64_t, double> known;
    if (!stats.truth) return known;
    for (const Score& score : stats.truth->frames)
        known[score.timestamp] = score.made[0].psnr;
    return known;
}

void savePng(OutputFile& file, const Image& image) {
    if (!writePng(image, file.openPath())) throw SessionFailed("cannot write " + file.name());
    file.commit();
}

// Blends a picture of a motion field over a frame, which becomes grey. In the picture each vector
// is a cell of one colour with an arrow of pure white and yellow in the centre. Grey cells have no
// motion, and only their arrows are drawn.
void layOver(const Surface& frame, const Image& field) {
    constexpr uint8_t kTint = 150;  // of 255
    for (uint32_t y = 0; y < frame.size.height; ++y) {
        for (uint32_t x = 0; x < frame.size.width; ++x) {
            uint8_t* pixel = frame.at(x, y);
            const auto grey =
                static_cast<uint8_t>((pixel[0] * 77 + pixel[1] * 150 + pixel[2] * 29) / 256);
            const uint8_t* over = field.pixels.data() + field.stride() * y + size_t{4} * x;
            const bool arrow = over[0] == 255 && over[1] == 255;
            const bool rest = over[0] == over[1] && over[1] == over[2];
            mix(pixel, {grey, grey, grey});
            if (arrow || !rest) {
                mix(pixel, {over[0], over[1], over[2], arrow ? uint8_t{255} : kTint});
            }
        }
    }
}

// Draws the motion vectors from a source frame to the next one over the first of them. A client has
// no access to the vectors, so they are taken from the component's frame dumps, in which the field
// has the number of the second frame.
Image drawVectors(const std::filesystem::path& folder, uint64_t frame) {
    std::optional<Image> picture = readPng(folder / format("%05llu_Game_Source.png", big(frame)));
    const std::optional<Image> field = readPng(folder / format("%05llu_FW_MV.png", big(frame + 1)));
    if (!picture || !field || field->size.width < picture->size.width ||
        field->size.height < picture->size.height) {
        throw SessionFailed(
            format("--vectors: there are none from frame %llu to the next", big(frame)));
    }
    layOver(picture->surface(), *field);
    return *std::move(picture);
}

}  // namespace

Outputs::Outputs(const Options& options, FrameSource& source, const StopRequest& stop)
    : mOptions(options), mInfo(source.info()), mMiddle(options.sheetAt) {
    refuseCollisions(options);
    if (!mMiddle && (mInfo.length || options.plan.frames))
        mMiddle =
            std::min(options.plan.frames.value_or(UINT64_MAX), mInfo.length.value_or(UINT64_MAX)) /
            2;
    const AVRational given = mInfo.rate;
    mInfo.rate.num *= static_cast<int>(options.plan.interp + 1);
    if (!options.output.empty())
        mClip = std::make_unique<MediaWriter>(options.output, mInfo, source.audio(), stop);
    mSheetFile = opened(options.sheet);
    if (mSheetFile != nullptr) mSheet = std::make_unique<Sheet>(sheetWindow(mMiddle, given));
    mVectors = opened(options.vectors);
    mTrace = opened(options.trace);
    mStats = opened(options.stats);
}

std::optional<uint64_t> Outputs::vectorsOf() const {
    if (mVectors == nullptr) return std::nullopt;
    return mMiddle.value_or(0);
}

std::vector<FrameSink*> Outputs::sinks() const {
    std::vector<FrameSink*> all{mClip.get(), mSheet.get()};
    std::erase(all, nullptr);
    return all;
}

// Does the work, and reports an exception as a failure of the run.
template <typename Work>
void Outputs::attempt(RunStats* stats, Work work) {
    try {
        work();
    } catch (const std::exception& error) {
        stats->failures.push_back(plainly(error));
    }
}

void Outputs::save(RunStats* stats, const std::filesystem::path& folder) {
    if (mClip != nullptr) {
        attempt(stats, [&] { mClip->finish(); });
        stats->output = clipText();
    }
    if (mTrace != nullptr) {
        attempt(stats, [&] {
            if (!qoz::host::stopTrace(mTrace->openPath())) {
                throw SessionFailed("cannot write " + mTrace->name());
            }
            mTrace->commit();
        });
    }
    if (mSheet != nullptr) {
        attempt(stats, [&] { savePng(*mSheetFile, mSheet->draw(psnrOf(*stats))); });
        if (mOptions.sheetAt && !mSheet->reachedWindow()) {
            stats->failures.emplace_back(
                "the frame of --sheet-at did not come out; the sheet shows the last ones that did");
        }
    }
    if (mVectors != nullptr) {
        attempt(stats, [&] { savePng(*mVectors, drawVectors(folder, *vectorsOf())); });
    }
    if (mStats == nullptr) return;
    attempt(stats, [&] {
        mStats->write(toJson(*stats).dump(2) + "\n");
        mStats->commit();
    });
}

// Describes the output clip for the summary, with the differences that a user may not expect:
// wrong timing, scaled frames and missing audio.
std::string Outputs::clipText() const {
    std::string text = format("%s, %llu frames, %s fps", mOptions.output.c_str(),
                              big(mClip->frames()), toText(mInfo.rate).c_str());
    const bool paced = std::ranges::none_of(
        mOptions.plan.changes, [](const Change& change) { return change.interp.has_value(); });
    if (!paced && !mClip->keepsTimes())
        text += format(", timed for interp %u", mOptions.plan.interp);
    if (mClip->scaled() != 0) {
        text += format(", %llu of them scaled to the size of the first", big(mClip->scaled()));
    }
    for (const std::string& codec : mClip->leftOut()) {
        text += ", without the audio in " + codec;
    }
    return text;
}

}  // namespace qozplay
