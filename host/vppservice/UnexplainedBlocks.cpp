// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/UnexplainedBlocks.h"

#include <cstddef>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/vppservice/UnexplainedBlocks.cpp"
#include <hwy/foreach_target.h>  // compiles the rest of this file for each target
#include <hwy/highway.h>
// This follows it because it is compiled for each target too.
#include "host/vppservice/Window-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qoz::host::vppservice::HWY_NAMESPACE {
namespace {

// Counts the unexplained blocks. In a large picture, `step` skips blocks: a share needs only a
// sample.
Unexplained CountUnexplained(const MotionFields& fields, const SubpixelPlanes& older,
                             const SubpixelPlanes& newer, int step) {
    constexpr int kBlock = static_cast<int>(kMotionBlock);
    const auto across = static_cast<int>(fieldWidth(static_cast<uint32_t>(newer.width())));
    struct Count {
        uint32_t changing = 0;
        uint32_t unlike = 0;

        void add(const MotionVector& vector, uint32_t still) {
            if (vector.error == UINT8_MAX) return;
            ++changing;
            unlike += vector.error * 2U > still ? 1U : 0U;
        }
        uint32_t percent() const { return percentOf(unlike, changing); }
    };
    Count forward;
    Count backward;
    for (int row = 0; (row + 1) * kBlock <= newer.height(); row += step) {
        for (int column = 0; (column + 1) * kBlock <= newer.width(); column += step) {
            const QuarterPlace place = {4 * column * kBlock, 4 * row * kBlock};
            const uint32_t still =
                windowDifference(older.at(place), newer.at(place), newer.stride()) / kWindowSamples;
            if (still < 2) continue;
            forward.add(fields.forward[row * across + column], still);
            backward.add(fields.backward[row * across + column], still);
        }
    }
    return {forward.percent(), backward.percent()};
}

}  // namespace
}  // namespace qoz::host::vppservice::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qoz::host::vppservice {
namespace {

HWY_EXPORT(CountUnexplained);

// Up to this number of blocks, all are counted; of a larger picture, every fourth is.
constexpr size_t kFewBlocks = 1024;

}  // namespace

Unexplained unexplainedPercent(const MotionFields& fields, const SubpixelPlanes& older,
                               const SubpixelPlanes& newer) {
    const auto width = static_cast<uint32_t>(newer.width());
    const auto height = static_cast<uint32_t>(newer.height());
    const size_t blocks = size_t{fieldWidth(width)} * fieldHeight(height);
    return HWY_DYNAMIC_DISPATCH(CountUnexplained)(fields, older, newer,
                                                  blocks > kFewBlocks ? 2 : 1);
}

}  // namespace qoz::host::vppservice
#endif
