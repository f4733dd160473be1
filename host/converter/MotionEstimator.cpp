// SPDX-License-Identifier: Apache-2.0
#include <host/converter/FieldSmoothing.h>
#include <host/converter/MotionEstimator.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace qoz::host {
namespace {

uint8_t meanError(const BlockMatch& match, uint32_t area) {
    if (match.difference == kUnseen) return 255;
    return static_cast<uint8_t>(std::min(254U, (match.difference + area / 2) / area));
}

int16_t steps(float pixels) {
    return static_cast<int16_t>(std::lround(pixels * kMotionUnit));
}

void write(const LumaPlane& from, const BlockGrid& grid, const std::vector<Motion>& motion,
           const BrightnessChange& change, MotionVector* field) {
    const Motion* fine = motion.data();
    for (int row = 0; row < grid.rows(); ++row) {
        for (int column = 0; column < grid.columns(); ++column, ++fine) {
            const Block block = grid.block(column, row);
            *field++ = {steps(fine->dx),
                        steps(fine->dy),
                        meanError(grid.at(column, row), block.area()),
                        blockTexture(from, block),
                        static_cast<int8_t>(change.gain),
                        static_cast<int8_t>(change.offset)};
        }
    }
}

// What leads from the newer frame's brightness to the older one's.
BrightnessChange inverse(const BrightnessChange& change) {
    const float gain = static_cast<float>(change.gain) / kGainUnit;
    return {static_cast<int>(std::lround((1 / (1 + gain) - 1) * kGainUnit)),
            static_cast<int>(std::lround(static_cast<float>(-change.offset) / (1 + gain)))};
}

}  // namespace

void MotionEstimator::estimateOne(const LumaPyramid& from, const LumaPyramid& to,
                                  const BrightnessChange& change, MotionVector* field) {
    BlockGrid& grid = mSearch.search(from, to);
    smoothField(from.level(0), to.level(0), &grid);
    const std::vector<Motion>& motion = mSubpixel.refine(from.level(0), to.level(0), &grid);
    write(from.level(0), grid, motion, change, field);
}

void MotionEstimator::estimate(const MappedBuffer& previous, const MappedBuffer& current,
                               bool known, MotionVector* forward, MotionVector* backward) {
    if (known) {
        std::swap(mPrevious, mCurrent);
    } else {
        mPrevious.build(previous);
    }
    mCurrent.build(current);
    const BrightnessChange change = brightnessChange(mPrevious.smallest(), mCurrent.smallest());
    if (change) mPrevious.change(change.gain, change.offset);
    estimateOne(mPrevious, mCurrent, change, forward);
    estimateOne(mCurrent, mPrevious, inverse(change), backward);
}

void MotionEstimator::release() {
    mPrevious.release();
    mCurrent.release();
    mSearch.release();
}

}  // namespace qoz::host
