// SPDX-License-Identifier: Apache-2.0
#include <host/converter/BlockKernels.h>
#include <host/converter/FieldSmoothing.h>
#include <host/converter/MotionEstimator.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace qoz::host {
namespace {

// The error of a match as a MotionVector stores it: per pixel, rounded.
uint8_t meanError(const BlockMatch& match, uint32_t area) {
    if (match.difference == kUnseen) return 255;
    return static_cast<uint8_t>(std::min(254U, (match.difference + area / 2) / area));
}

// Converts pixels to the units of a vector, rounded to the nearest.
int16_t steps(float pixels) {
    return static_cast<int16_t>(std::floor(pixels * kMotionUnit + 0.5F));
}

// Writes the field from its parts.
void write(const BlockGrid& grid, const SubpixelField& fine, const BrightnessChange& change,
           const uint8_t* textures, MotionVector* field) {
    for (int row = 0; row < grid.rows(); ++row) {
        for (int column = 0; column < grid.columns(); ++column) {
            const Motion motion = fine.at(column, row);
            *field++ = {steps(motion.dx),
                        steps(motion.dy),
                        meanError(grid.at(column, row), grid.block(column, row).area()),
                        *textures++,
                        static_cast<int8_t>(change.gain),
                        static_cast<int8_t>(change.offset)};
        }
    }
}

// Returns the change from the newer frame's brightness to the older one's.
BrightnessChange inverse(const BrightnessChange& change) {
    const float gain = static_cast<float>(change.gain) / kGainUnit;
    return {static_cast<int>(std::lround((1 / (1 + gain) - 1) * kGainUnit)),
            static_cast<int>(std::lround(static_cast<float>(-change.offset) / (1 + gain)))};
}

}  // namespace

// Smoothing precedes the subpixel measurement, because a wrong match cannot be measured.
void MotionEstimator::refine(const Frame& from, const Frame& to, const BrightnessChange& change,
                             BlockGrid* grid, MotionVector* field) {
    smoothField(from.luma.level(0), to.luma.level(0), grid);
    mSubpixel.refine(from.luma.level(0), to.luma.level(0), grid);
    write(*grid, mSubpixel, change, from.textures.data(), field);
}

void MotionEstimator::Frame::measure() {
    const LumaPlane& plane = luma.level(0);
    const BlockLayout blocks(plane,
                             static_cast<int>(fieldWidth(static_cast<uint32_t>(plane.width))),
                             static_cast<int>(fieldHeight(static_cast<uint32_t>(plane.height))),
                             static_cast<int>(kMotionBlock));
    textures.resize(static_cast<size_t>(blocks.columns()) * static_cast<size_t>(blocks.rows()));
    measureTextures(plane, blocks, textures.data());
}

// The forward search runs over the whole pyramid. The backward search starts from its result, which
// is much cheaper, and must therefore follow it.
void MotionEstimator::estimate(const MappedBuffer& previous, const MappedBuffer& current,
                               bool known, MotionVector* forward, MotionVector* backward) {
    // If the last call ran out of memory, it may have left its current frame incomplete; mWhole is
    // false then.
    const bool isKept = std::exchange(mWhole, false) && known;
    if (isKept) {
        std::swap(mPrevious, mCurrent);
    } else {
        mPrevious.luma.build(previous);
    }
    mCurrent.luma.build(current);
    const BrightnessChange change =
        brightnessChange(mPrevious.luma.smallest(), mCurrent.luma.smallest());
    if (change) mPrevious.luma.change(change.gain, change.offset);
    if (change || !isKept) mPrevious.measure();
    mCurrent.measure();
    mWhole = true;
    BlockGrid& there = mForward.search(mPrevious.luma, mCurrent.luma);
    refine(mPrevious, mCurrent, change, &there, forward);
    BlockGrid& back = mBackward.searchBack(mCurrent.luma, mPrevious.luma, there);
    refine(mCurrent, mPrevious, inverse(change), &back, backward);
}

void MotionEstimator::release() {
    *this = MotionEstimator();
}

}  // namespace qoz::host
