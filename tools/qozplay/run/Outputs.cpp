// SPDX-License-Identifier: Apache-2.0
#include "qozplay/run/Outputs.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <system_error>
#include <utility>

#include "qozplay/report/VectorPicture.h"

namespace qozplay {
namespace {

Rate outputRate(const Options& options, Rate rate) {
    return {rate.num * (options.interp + 1), rate.den};
}

// The same file under whatever two names, be it there already or not. A device may be named twice.
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

// The intervals around the middle.
std::optional<std::pair<uint64_t, uint64_t>> sheetWindow(const Options& options,
                                                         const FrameSource& source) {
    const std::optional<uint64_t> middle = middleFrame(options, source);
    if (!middle) return std::nullopt;
    const uint64_t first = *middle - std::min<uint64_t>(*middle, Sheet::kIntervals / 2);
    const auto at = [&](uint64_t frame) {
        return static_cast<uint64_t>(timestampOf(source.rate(), frame) / 1000);
    };
    return std::make_pair(at(first), at(first + Sheet::kIntervals));
}

std::string sheetTitle(const Options& options, const FrameSource& source) {
    return format("QOZPLAY   %s   %s > %s FPS   UPSCALE %sX", toText(source.size()).c_str(),
                  toText(source.rate()).c_str(), toText(outputRate(options, source.rate())).c_str(),
                  options.aisOnly ? "2" : kUpscaleRatios.at(options.upscaleIndex).data());
}

// Of the frames that have been scored.
Sheet::Psnr psnrOf(const RunStats& stats) {
    Sheet::Psnr known;
    if (!stats.truth) return known;
    for (const Score& score : stats.truth->frames) {
        known[score.timestamp] = score.interpolated.psnr;
    }
    return known;
}

void savePng(OutputFile& file, const Image& image) {
    if (!writePng(image, file.openPath())) throw SessionFailed("cannot write " + file.name());
    file.commit();
}

}  // namespace

std::optional<uint64_t> middleFrame(const Options& options, const FrameSource& source) {
    if (options.sheetAt) return options.sheetAt;
    std::optional<uint64_t> length = source.length();
    if (options.frames) length = std::min(*options.frames, length.value_or(*options.frames));
    if (!length) return std::nullopt;
    return *length / 2;
}

Outputs::Outputs(const Options& options, FrameSource& source, const StopRequest& stop)
    : mOptions(options), mRate(outputRate(options, source.rate())) {
    refuseCollisions(options);
    if (!options.output.empty()) {
        const MediaWriter::Format format{mRate, source.sampleAspect(), source.colourTags(),
                                         source.audio()};
        mClip = std::make_unique<MediaWriter>(options.output, format, stop);
    }
    mSheetFile = opened(options.sheet);
    if (mSheetFile != nullptr) {
        mSheet = std::make_unique<Sheet>(sheetTitle(options, source), sheetWindow(options, source));
    }
    mVectors = opened(options.vectors);
    mTrace = opened(options.trace);
    mStats = opened(options.stats);
}

std::vector<FrameSink*> Outputs::sinks() const {
    std::vector<FrameSink*> all{mClip.get(), mSheet.get()};
    std::erase(all, nullptr);
    return all;
}

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
        const uint64_t frame = stats->vectorsOf.value_or(0);
        attempt(stats, [&] { savePng(*mVectors, drawVectors(folder, frame)); });
    }
    if (mStats == nullptr) return;
    attempt(stats, [&] {
        mStats->write(toJson(*stats).dump(2) + "\n");
        mStats->commit();
    });
}

std::string Outputs::clipText() const {
    std::string text = format("%s, %llu frames, %s fps", mOptions.output.c_str(),
                              big(mClip->frames()), toText(mRate).c_str());
    const bool paced = std::ranges::none_of(
        mOptions.changes, [](const Change& change) { return change.kind == Change::Kind::Interp; });
    if (!paced && !mClip->keepsTimes()) text += format(", timed for interp %u", mOptions.interp);
    if (mClip->scaled() != 0) {
        text += format(", %llu of them scaled to the size of the first", big(mClip->scaled()));
    }
    for (const std::string& codec : mClip->leftOut()) {
        text += ", without the audio in " + codec;
    }
    return text;
}

}  // namespace qozplay
