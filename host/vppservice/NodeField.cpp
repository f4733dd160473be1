// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/NodeField.h"

namespace qoz::host::vppservice {
namespace {

constexpr int kSameLayer = 13;        // eighths of a pixel; vectors no further apart are one motion
constexpr uint16_t kFlatTexture = 2;  // with less texture, the vector is a guess
constexpr uint16_t kSureTexture = 4;  // with this texture, a vector of 0 would be noticed
constexpr uint16_t kFlatHandicap = 8;  // added to the rank of a guessed vector

// Halves a sum and rounds away from 0, so that both fields are treated alike.
int16_t halved(int sum) {
    return static_cast<int16_t>((sum + (sum > 0 ? 1 : 0)) >> 1);
}

bool moveAlike(Vector a, Vector b) {
    return distance(a, b) <= kSameLayer;
}

// Returns the mean of both vectors if they are one motion, else the first.
Vector meanOf(Vector own, Vector other) {
    if (!moveAlike(own, other)) return own;
    return {halved(own.dx + other.dx), halved(own.dy + other.dy)};
}

// The number of nodes that cover a length in pixels.
int nodesOver(int pixels) {
    return (pixels + kNodeStep - 1) / kNodeStep + 1;
}

}  // namespace

// A node lies in the middle of a block or on the border between blocks. It belongs to one block,
// and its vector is the mean of the vectors of that block and of those adjoining blocks that move
// alike.
void NodeField::read(const MotionVector* vectors, int sign, FrameSize size) {
    const auto across = static_cast<int>(fieldWidth(size.width));
    const auto down = static_cast<int>(fieldHeight(size.height));
    mColumns = nodesOver(static_cast<int>(size.width));
    mRows = nodesOver(static_cast<int>(size.height));
    mCells.resize(static_cast<size_t>(mColumns) * static_cast<size_t>(mRows));
    const auto turned = [sign](const MotionVector& one) {
        return Vector{static_cast<int16_t>(sign * one.dx), static_cast<int16_t>(sign * one.dy)};
    };
    for (int row = 0; row < down; ++row) {
        const MotionVector* here = vectors + ptrdiff_t{row} * across;
        const MotionVector* above = row > 0 ? here - across : here;
        Arrival* upper = mCells.data() + ptrdiff_t{2} * row * mColumns;
        Arrival* lower = 2 * row + 1 < mRows ? upper + mColumns : upper;
        for (int column = 0; column < across; ++column) {
            const MotionVector& block = here[column];
            const int left = std::max(column - 1, 0);
            const Vector own = turned(block);
            const Vector beside = meanOf(own, turned(here[left]));
            const Vector over = meanOf(own, turned(above[column]));
            Arrival cell;
            cell.rank = block.error;
            if (block.texture < kFlatTexture) cell.rank += kFlatHandicap;
            cell.sure = block.texture >= kSureTexture && distance(own, {}) >= kMotionUnit;
            const int next = std::min(2 * column + 1, mColumns - 1);
            const auto put = [&cell](Arrival& at, Vector vector) {
                at = cell;
                at.vector = vector;
            };
            put(lower[next], own);
            put(lower[ptrdiff_t{2} * column], beside);
            put(upper[next], over);
            put(upper[ptrdiff_t{2} * column],
                meanOf(meanOf(own, turned(above[left])), meanOf(beside, over)));
        }
        // Nodes past the last block repeat its vector.
        for (Arrival* cells : {lower, upper})
            cells[mColumns - 1] = cells[std::min(2 * across - 1, mColumns - 1)];
    }
    for (int row = 2 * down; row < mRows; ++row) {
        const auto last = mCells.begin() + ptrdiff_t{row - 1} * mColumns;
        std::copy(last, last + mColumns, last + mColumns);
    }
}

}  // namespace qoz::host::vppservice
