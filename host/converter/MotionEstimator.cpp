#include <host/converter/FieldSmoothing.h>
#include <host/converter/MotionEstimator.h>

#include <algorithm>

namespace qoz::host {
namespace {

uint8_t meanError(const BlockMatch& match, uint32_t area) {
    if (match.difference == kUnseen) return 255;
    return static_cast<uint8_t>(std::min(254U, (match.difference + area / 2) / area));
}

void write(const LumaPlane& from, const BlockGrid& grid, MotionVector* field) {
    for (int row = 0; row < grid.rows(); ++row) {
        for (int column = 0; column < grid.columns(); ++column) {
            const BlockMatch& match = grid.at(column, row);
            const Block block = grid.block(column, row);
            *field++ = {static_cast<int8_t>(match.displacement.dx),
                        static_cast<int8_t>(match.displacement.dy), meanError(match, block.area()),
                        blockTexture(from, block)};
        }
    }
}

void estimateOne(const LumaPyramid& from, const LumaPyramid& to, BlockSearch* search,
                 MotionVector* field) {
    BlockGrid& grid = search->search(from, to);
    smoothField(from.level(0), to.level(0), &grid);
    write(from.level(0), grid, field);
}

}  // namespace

void MotionEstimator::estimate(const MappedBuffer& previous, const MappedBuffer& current,
                               MotionVector* forward, MotionVector* backward) {
    mPrevious.build(previous);
    mCurrent.build(current);
    estimateOne(mPrevious, mCurrent, &mSearch, forward);
    estimateOne(mCurrent, mPrevious, &mSearch, backward);
}

void MotionEstimator::release() {
    mPrevious.release();
    mCurrent.release();
    mSearch.release();
}

}  // namespace qoz::host
