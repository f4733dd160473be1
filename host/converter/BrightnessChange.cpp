// SPDX-License-Identifier: Apache-2.0
#include <host/converter/BrightnessChange.h>
#include <host/converter/MotionField.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace qoz::host {
namespace {

// The distribution is compared at 30 quantiles, 1/31 to 30/31. The outermost pixels are left out
// because new content enters at the picture's edges and extreme values saturate.
constexpr int kQuantiles = 30;
using Quantiles = std::array<float, kQuantiles>;

// Changes below kNoticeable, a mean over the quantiles in grey levels, count as none. kExplained is
// the share of the change that the best gain and offset may leave unexplained.
constexpr float kNoticeable = 1.0F;
constexpr float kExplained = 0.35F;

constexpr int kPart = 8;        // width and height of a part, in pixels of the reduced frame
constexpr float kHolds = 0.7F;  // share of the parts' changes that may stay unexplained

// Limits that keep gain and offset of both directions within a signed byte.
constexpr int kLeastGain = -84;
constexpr int kMostGain = 120;
constexpr int kMostOffset = 80;

// Returns the quantiles of the plane's luma, interpolated between grey levels.
Quantiles quantilesOf(const LumaPlane& plane) {
    std::array<uint32_t, 256> counts{};
    for (const uint8_t pixel : plane.pixels)
        ++counts[pixel];
    const auto all = static_cast<float>(plane.pixels.size());
    Quantiles quantiles{};
    float below = 0;
    size_t level = 0;
    for (int i = 0; i < kQuantiles; ++i) {
        const float wanted = all * static_cast<float>(i + 1) / (kQuantiles + 1);
        while (level < 255 && below + static_cast<float>(counts[level]) < wanted)
            below += static_cast<float>(counts[level++]);
        const auto here = static_cast<float>(std::max(counts[level], 1U));
        quantiles[static_cast<size_t>(i)] = static_cast<float>(level) + (wanted - below) / here;
    }
    return quantiles;
}

// Returns whether the parts of the frames change as the whole does. They do not if only a light
// goes on in the picture or if one picture replaces another.
bool holdsForParts(const LumaPlane& older, const LumaPlane& newer, const BrightnessChange& change) {
    float before = 0;
    float after = 0;
    for (int top = 0; top + kPart <= older.height; top += kPart) {
        for (int left = 0; left + kPart <= older.width; left += kPart) {
            int from = 0, to = 0;
            for (int y = top; y < top + kPart; ++y) {
                for (int x = left; x < left + kPart; ++x) {
                    from += *older.at(x, y);
                    to += *newer.at(x, y);
                }
            }
            const auto difference = static_cast<float>(to - from) / (kPart * kPart);
            const float mean = static_cast<float>(from) / (kPart * kPart);
            before += std::abs(difference);
            after += std::abs(difference - mean * static_cast<float>(change.gain) / kGainUnit -
                              static_cast<float>(change.offset));
        }
    }
    return after < kHolds * before;
}

}  // namespace

BrightnessChange brightnessChange(const LumaPlane& older, const LumaPlane& newer) {
    const Quantiles from = quantilesOf(older);
    const Quantiles to = quantilesOf(newer);
    float x = 0, y = 0, xx = 0, xy = 0, change = 0;
    for (size_t i = 0; i < from.size(); ++i) {
        x += from[i] / kQuantiles;
        y += to[i] / kQuantiles;
        xx += from[i] * from[i] / kQuantiles;
        xy += from[i] * to[i] / kQuantiles;
        change += std::abs(to[i] - from[i]) / kQuantiles;
    }
    // A line through the pairs of quantiles, by least squares.
    const float spread = xx - x * x;
    if (change < kNoticeable || spread < 1) return {};
    const float slope = (xy - x * y) / spread;
    float left = 0;
    for (size_t i = 0; i < from.size(); ++i)
        left += std::abs(to[i] - y - slope * (from[i] - x)) / kQuantiles;
    if (left > kExplained * change) return {};

    const auto gain = static_cast<int>(std::lround((slope - 1) * kGainUnit));
    const auto offset = static_cast<int>(std::lround(y - slope * x));
    if (gain < kLeastGain || gain > kMostGain || std::abs(offset) > kMostOffset) return {};
    const BrightnessChange found{gain, offset};
    return holdsForParts(older, newer, found) ? found : BrightnessChange{};
}

}  // namespace qoz::host
