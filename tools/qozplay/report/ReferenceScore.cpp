// SPDX-License-Identifier: Apache-2.0
#include "qozplay/report/ReferenceScore.h"

#include <libyuv.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>
#include <utility>

namespace qozplay {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Likeness, psnr, ssim)

namespace {

using nlohmann::json;

// The greatest difference, in microseconds, between the time of an interpolated frame and that of
// the held-out frame, because the two are rounded differently.
constexpr uint64_t kRounding = 1;

constexpr std::array kMakers{"interpolated", "repeated", "blended"};

// The mean of each column of the table, and the minimum of each column.
Likenesses mean(const std::vector<Score>& scores) {
    Likenesses mean{};
    const auto count = static_cast<double>(scores.size());
    for (const Score& score : scores) {
        for (size_t i = 0; i < mean.size(); ++i) {
            mean[i].psnr += score.made[i].psnr / count;
            mean[i].ssim += score.made[i].ssim / count;
        }
    }
    return mean;
}

Likenesses least(const std::vector<Score>& scores) {
    Likenesses least = scores.empty() ? Likenesses{} : scores.front().made;
    for (const Score& score : scores) {
        for (size_t i = 0; i < least.size(); ++i) {
            least[i].psnr = std::min(least[i].psnr, score.made[i].psnr);
            least[i].ssim = std::min(least[i].ssim, score.made[i].ssim);
        }
    }
    return least;
}

std::string cells(const Likenesses& row) {
    std::string text;
    for (const Likeness& cell : row)
        text += format("  %6.2f %6.4f", cell.psnr, cell.ssim);
    return text + "\n";
}

// The weights of red, green and blue in limited-range luma, in units of 1 / kUnit.
constexpr int kUnit = 1 << 15;
using Shares = std::array<int, 3>;
constexpr Shares kBt601{8414, 16520, 3208};
constexpr Shares kBt709{5983, 20127, 2032};

// Converts a row of RGBA pixels to luma.
void weighRow(const uint8_t* rgba, const Shares& shares, uint32_t width, uint8_t* luma) {
    for (uint32_t x = 0; x < width; ++x, rgba += 4) {
        const int sum = rgba[0] * shares[0] + rgba[1] * shares[1] + rgba[2] * shares[2];
        luma[x] = static_cast<uint8_t>((sum + 16 * kUnit + kUnit / 2) / kUnit);
    }
}

}  // namespace

ReferenceScore::ReferenceScore(std::unique_ptr<FrameSource> clip, uint32_t step)
    : mClip(std::move(clip)), mSize(mClip->info().size), mStep(step) {
    if (std::min(mSize.width, mSize.height) < kMinSide) {
        throw BadInput(format("--truth: no side may be below %u", kMinSide));
    }
    mInfo = mClip->info();
    mInfo.rate.den *= static_cast<int>(step);
    if (mInfo.length) mInfo.length = (*mInfo.length + step - 1) / step;
}

// Held-out frames count only if a source frame follows them in the clip; otherwise there is no
// interval in which they could be interpolated.
std::optional<int64_t> ReferenceScore::next(uint8_t* rgba, size_t stride) {
    const size_t row = size_t{4} * mSize.width;
    std::vector<Picture> held;
    uint64_t frame = mNext;
    for (; frame % mStep != 0; ++frame) {
        mSpare.resize(row * mSize.height);
        const std::optional<int64_t> time = mClip->next(mSpare.data(), row);
        if (!time) return std::nullopt;
        held.push_back(pictureOf(frame, *time, mSpare.data(), row));
    }
    const std::optional<int64_t> time = mClip->next(rgba, stride);
    if (!time) return std::nullopt;
    std::move(held.begin(), held.end(), std::back_inserter(mPictures));
    mPictures.push_back(pictureOf(frame, *time, rgba, stride));
    mNext = frame + 1;
    return time;
}

// Computes the luma of a clip frame by the converter's rule, so that the conversion itself does not
// lower the score.
ReferenceScore::Picture ReferenceScore::pictureOf(uint64_t frame, int64_t nanoseconds,
                                                  const uint8_t* rgba, size_t stride) const {
    Picture picture{frame, static_cast<uint64_t>(nanoseconds) / 1000,
                    Luma(size_t{mSize.width} * mSize.height)};
    const Shares& shares = usualMatrix(mSize) == AVCOL_SPC_BT709 ? kBt709 : kBt601;
    for (uint32_t y = 0; y < mSize.height; ++y)
        weighRow(rgba + y * stride, shares, mSize.width, &picture.luma[size_t{y} * mSize.width]);
    return picture;
}

bool ReferenceScore::take(const FinishedFrame& frame) {
    const auto found = std::ranges::find_if(mPictures, [&](const Picture& picture) {
        return picture.timestamp + kRounding >= frame.timestamp;
    });
    if (found == mPictures.end() || found->timestamp > frame.timestamp + kRounding) return true;
    if (found->frame % mStep != 0) {
        score(frame, *found);
    } else {
        passed(found->timestamp);
    }
    return true;
}

// Scores an interpolated frame and its two substitutes against the held-out frame.
void ReferenceScore::score(const FinishedFrame& frame, Picture& truth) {
    if (frame.picture.size != mSize) {
        throw SessionFailed("--truth: a frame came out as " + toText(frame.picture.size) +
                            ", the clip is " + toText(mSize));
    }
    const auto phase = static_cast<uint32_t>(truth.frame % mStep);
    const Luma& before = lumaOf(truth.frame - phase);
    const Luma& after = lumaOf(truth.frame - phase + mStep);
    mSpare.resize(truth.luma.size());
    std::transform(
        before.begin(), before.end(), after.begin(), mSpare.begin(), [&](uint32_t a, uint32_t b) {
            return static_cast<uint8_t>((a * (mStep - phase) + b * phase + mStep / 2) / mStep);
        });
    const auto width = static_cast<int>(mSize.width);
    mScores.frames.push_back(
        {truth.frame,
         frame.timestamp,
         {compare(frame.picture.luma, frame.picture.stride, truth.luma),
          compare(before.data(), width, truth.luma), compare(mSpare.data(), width, truth.luma)}});
    truth.scored = true;
}

Likeness ReferenceScore::compare(const uint8_t* luma, int stride, const Luma& truth) const {
    const auto width = static_cast<int>(mSize.width);
    const auto height = static_cast<int>(mSize.height);
    return {libyuv::CalcFramePsnr(luma, stride, truth.data(), width, width, height),
            libyuv::CalcFrameSsim(luma, stride, truth.data(), width, width, height)};
}

// Returns the luma of a source frame. It is still kept whenever the output is in order; if it is
// not, throws SessionFailed.
const ReferenceScore::Luma& ReferenceScore::lumaOf(uint64_t frame) const {
    const auto found = std::ranges::find(mPictures, frame, &Picture::frame);
    if (found == mPictures.end()) {
        throw SessionFailed(
            format("--truth: a frame was made out of turn, without frame %llu", big(frame)));
    }
    return found->luma;
}

// Called when a source frame has come out. Frames before it will not be interpolated any more, so
// their pictures are released, and those without a score are counted.
void ReferenceScore::passed(uint64_t timestamp) {
    while (mPictures.front().timestamp < timestamp) {
        const Picture& picture = mPictures.front();
        if (picture.frame % mStep != 0 && !picture.scored) ++mScores.notInterpolated;
        mPictures.pop_front();
    }
}

std::string toText(const Scores& scores) {
    std::string text = format("%-12s%6s %11s", "truth", "frame", "ms");
    for (const char* maker : kMakers)
        text += format("  %13s", maker);
    text += "  (PSNR of luma in dB, SSIM)\n";
    for (const Score& score : scores.frames) {
        text += format("            %6llu %11.3f", big(score.frame),
                       static_cast<double>(score.timestamp) / 1000) +
                cells(score.made);
    }
    return text + format("%24s      ", "mean") + cells(mean(scores.frames)) +
           format("%24s      ", "least") + cells(least(scores.frames));
}

json toJson(const Scores& scores) {
    json all{{"frames", json::array()}, {"not_interpolated", scores.notInterpolated}};
    for (const Score& score : scores.frames)
        all["frames"].push_back({{"frame", score.frame}, {"timestamp_us", score.timestamp}});
    for (size_t i = 0; i < kMakers.size(); ++i) {
        for (size_t n = 0; n < scores.frames.size(); ++n)
            all["frames"][n][kMakers[i]] = scores.frames[n].made[i];
        all[kMakers[i]] = {{"mean", mean(scores.frames)[i]}, {"least", least(scores.frames)[i]}};
    }
    return all;
}

}  // namespace qozplay
