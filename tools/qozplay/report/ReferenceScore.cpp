// SPDX-License-Identifier: Apache-2.0
#include "qozplay/report/ReferenceScore.h"

#include <libyuv.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <utility>

#include "qozplay/media/Colour.h"

namespace qozplay {
namespace {

using nlohmann::json;

constexpr uint64_t kRounding = 1;  // microseconds between two ways to divide an interval

constexpr std::array<std::pair<const char*, Likeness Score::*>, 3> kMakers{
    {{"interpolated", &Score::interpolated},
     {"repeated", &Score::repeated},
     {"blended", &Score::blended}}};

Likeness mean(const std::vector<Score>& scores, Likeness Score::*maker) {
    Likeness sum;
    for (const Score& score : scores) {
        sum.psnr += (score.*maker).psnr;
        sum.ssim += (score.*maker).ssim;
    }
    const auto count = static_cast<double>(std::max<size_t>(scores.size(), 1));
    return {sum.psnr / count, sum.ssim / count};
}

Likeness least(const std::vector<Score>& scores, Likeness Score::*maker) {
    if (scores.empty()) return {};
    Likeness least = scores.front().*maker;
    for (const Score& score : scores) {
        least.psnr = std::min(least.psnr, (score.*maker).psnr);
        least.ssim = std::min(least.ssim, (score.*maker).ssim);
    }
    return least;
}

json toJson(const Likeness& likeness) {
    return {{"psnr", likeness.psnr}, {"ssim", likeness.ssim}};
}

std::string cells(const std::array<Likeness, kMakers.size()>& row) {
    std::string text;
    for (const Likeness& cell : row) {
        text += format("  %6.2f %6.4f", cell.psnr, cell.ssim);
    }
    return text + "\n";
}

// Red's, green's and blue's shares of limited-range luma, of kUnit.
constexpr int kUnit = 1 << 15;
using Shares = std::array<int, 3>;
constexpr Shares kBt601{8414, 16520, 3208};
constexpr Shares kBt709{5983, 20127, 2032};

void weighRow(const uint8_t* rgba, const Shares& shares, uint32_t width, uint8_t* luma) {
    for (uint32_t x = 0; x < width; ++x, rgba += 4) {
        const int sum = rgba[0] * shares[0] + rgba[1] * shares[1] + rgba[2] * shares[2];
        luma[x] = static_cast<uint8_t>((sum + 16 * kUnit + kUnit / 2) / kUnit);
    }
}

}  // namespace

ReferenceScore::ReferenceScore(Size size, uint32_t step) : mSize(size), mStep(step) {
    if (std::min(size.width, size.height) < kMinSide) {
        throw BadInput(format("--truth: no side may be below %u", kMinSide));
    }
}

// By the converter's own rule, so that the conversion costs no score.
void ReferenceScore::keep(uint64_t frame, int64_t nanoseconds, const uint8_t* rgba, size_t stride) {
    Picture picture{frame, static_cast<uint64_t>(nanoseconds) / 1000, {}};
    picture.luma.resize(static_cast<size_t>(mSize.width) * mSize.height);
    mSpare.resize(picture.luma.size());
    const bool high = converterMatrix(mSize) == AVCOL_SPC_BT709;
    for (uint32_t y = 0; y < mSize.height; ++y) {
        weighRow(rgba + y * stride, high ? kBt709 : kBt601, mSize.width,
                 picture.luma.data() + size_t{y} * mSize.width);
    }
    mPictures.push_back(std::move(picture));
}

bool ReferenceScore::take(const FinishedFrame& frame) {
    const auto found = std::find_if(
        mPictures.begin(), mPictures.end(),
        [&](const Picture& picture) { return picture.timestamp + kRounding >= frame.timestamp; });
    const bool known = found != mPictures.end() && found->timestamp <= frame.timestamp + kRounding;
    if (known && found->frame % mStep != 0) score(frame, *found);
    if (known && found->frame % mStep == 0) passed(found->timestamp);
    return true;
}

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
    mScores.frames.push_back({truth.frame, frame.timestamp,
                              compare(frame.picture.luma, frame.picture.stride, truth.luma),
                              compare(before.data(), width, truth.luma),
                              compare(mSpare.data(), width, truth.luma)});
    truth.scored = true;
}

Likeness ReferenceScore::compare(const uint8_t* luma, int stride, const Luma& truth) const {
    const auto width = static_cast<int>(mSize.width);
    const auto height = static_cast<int>(mSize.height);
    return {libyuv::CalcFramePsnr(luma, stride, truth.data(), width, width, height),
            libyuv::CalcFrameSsim(luma, stride, truth.data(), width, width, height)};
}

const ReferenceScore::Luma& ReferenceScore::lumaOf(uint64_t frame) const {
    const auto found = std::find_if(mPictures.begin(), mPictures.end(),
                                    [&](const Picture& picture) { return picture.frame == frame; });
    if (found == mPictures.end()) {
        throw SessionFailed(format("--truth: a frame was made out of turn, without frame %llu",
                                   static_cast<unsigned long long>(frame)));
    }
    return found->luma;
}

// A given frame came out: what was to be made before it has been made by now, or never will be.
void ReferenceScore::passed(uint64_t timestamp) {
    while (mPictures.front().timestamp < timestamp) {
        const Picture& picture = mPictures.front();
        if (picture.frame % mStep != 0 && !picture.scored) ++mScores.notInterpolated;
        mPictures.pop_front();
    }
}

SubsampledSource::SubsampledSource(std::unique_ptr<FrameSource> clip, uint32_t step,
                                   ReferenceScore& truth)
    : mClip(std::move(clip)), mStep(step), mReference(truth) {}

Rate SubsampledSource::rate() const {
    const Rate rate = mClip->rate();
    return {rate.num, rate.den * mStep};
}

std::optional<uint64_t> SubsampledSource::length() const {
    const std::optional<uint64_t> length = mClip->length();
    if (!length) return std::nullopt;
    return (*length + mStep - 1) / mStep;
}

// The frames held back count only once the given one after them is there: without it nothing is
// made in their place.
bool SubsampledSource::next(uint8_t* rgba, size_t stride) {
    const size_t row = size_t{4} * size().width;
    const size_t picture = row * size().height;
    const uint32_t held = mNext == 0 ? 0 : mStep - 1;
    mHeld.resize(picture * held);
    mHeldTimes.resize(held);
    for (uint32_t i = 0; i < held; ++i) {
        if (!mClip->next(mHeld.data() + picture * i, row)) return false;
        mHeldTimes[i] = mClip->timeOf(mNext + i);
    }
    if (!mClip->next(rgba, stride)) return false;
    for (uint32_t i = 0; i < held; ++i) {
        mReference.keep(mNext++, mHeldTimes[i], mHeld.data() + picture * i, row);
    }
    mReference.keep(mNext, mClip->timeOf(mNext), rgba, stride);
    ++mNext;
    return true;
}

std::string toText(const Scores& scores) {
    std::string text = format("%-12s%6s %11s", "truth", "frame", "ms");
    for (const auto& [name, maker] : kMakers) {
        text += format("  %13s", name);
    }
    text += "  (PSNR of luma in dB, SSIM)\n";
    for (const Score& score : scores.frames) {
        text += format("            %6llu %11.3f", static_cast<unsigned long long>(score.frame),
                       static_cast<double>(score.timestamp) / 1000);
        text += cells({score.interpolated, score.repeated, score.blended});
    }
    const auto total = [&](const char* name, const auto& of) {
        return format("%24s      ", name) +
               cells({of(scores.frames, &Score::interpolated), of(scores.frames, &Score::repeated),
                      of(scores.frames, &Score::blended)});
    };
    return text + total("mean", mean) + total("least", least);
}

json toJson(const Scores& scores) {
    json frames = json::array();
    for (const Score& score : scores.frames) {
        json frame{{"frame", score.frame}, {"timestamp_us", score.timestamp}};
        for (const auto& [name, maker] : kMakers) {
            frame[name] = toJson(score.*maker);
        }
        frames.push_back(std::move(frame));
    }
    json all{{"frames", std::move(frames)}, {"not_interpolated", scores.notInterpolated}};
    for (const auto& [name, maker] : kMakers) {
        all[name] = {{"mean", toJson(mean(scores.frames, maker))},
                     {"least", toJson(least(scores.frames, maker))}};
    }
    return all;
}

}  // namespace qozplay
