// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/Interpolator.h"

#include <libyuv/planar_functions.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

#include "host/vppservice/PixelKernels.h"

namespace qoz::host::vppservice {
namespace {

// Shares of the blocks with texture that nothing in the other source is like.
constexpr uint32_t kCutPercent = 40;

// A block is unlike everything when its best match differs by more than this share of its texture.
constexpr uint32_t kUnlikeFloor = 6;

// Quarters of a pixel: nodes further apart move as different things.
constexpr int kApart = 4;

void blend(const Nv12View& older, const Nv12View& newer, Phase phase, const Nv12Canvas& to) {
    const auto fraction = static_cast<int>(256 * phase.index / phase.steps);
    const auto one = [&](const uint8_t* a, const uint8_t* b, uint8_t* out, uint32_t bytes,
                         uint32_t rows) {
        libyuv::InterpolatePlane(a, static_cast<int>(older.stride), b,
                                 static_cast<int>(newer.stride), out, static_cast<int>(to.stride),
                                 static_cast<int>(bytes), static_cast<int>(rows), fraction);
    };
    one(older.luma, newer.luma, to.luma, to.size.width, to.size.height);
    one(older.chroma, newer.chroma, to.chroma, to.chromaBytes(), to.chromaRows());
}

// Share of the field's blocks with texture that it found nothing like, in percent.
uint32_t unlikePercent(const MotionVector* field, size_t blocks) {
    uint32_t unlike = 0;
    uint32_t compared = 0;
    for (size_t i = 0; i < blocks; ++i) {
        const MotionVector& v = field[i];
        if (v.error == UINT8_MAX || v.texture < 3) continue;  // led out of the picture, or is flat
        ++compared;
        if (v.error > kUnlikeFloor && v.error > v.texture * 3 / 4) ++unlike;
    }
    return compared < 8 ? 0 : unlike * 100 / compared;
}

bool isCut(const MotionFields& fields, FrameSize size) {
    const size_t blocks = size_t{fieldWidth(size.width)} * fieldHeight(size.height);
    return unlikePercent(fields.forward, blocks) > kCutPercent &&
           unlikePercent(fields.backward, blocks) > kCutPercent;
}

// One picture gives way to another: what changes is explained by no motion.
constexpr uint32_t kDissolvePercent = 75;

// Share of the field's blocks that differ where they are and hardly less where the vectors lead, in
// percent.
uint32_t unexplainedPercent(const MotionVector* field, const SubpixelPlanes& from,
                            const SubpixelPlanes& to) {
    constexpr int kBlock = static_cast<int>(kMotionBlock);
    constexpr uint32_t kRowsCompared = 8;  // of 16 pixels each
    const auto across = static_cast<int>(fieldWidth(static_cast<uint32_t>(from.width())));
    uint32_t changing = 0;
    uint32_t unexplained = 0;
    for (int row = 0; (row + 1) * kBlock <= from.height(); ++row) {
        for (int column = 0; (column + 1) * kBlock <= from.width(); ++column) {
            const MotionVector& vector = field[row * across + column];
            if (vector.error == UINT8_MAX) continue;
            const QuarterPlace place = {4 * column * kBlock, 4 * row * kBlock};
            const uint32_t still = windowDifference(from.at(place), to.at(place), to.stride()) /
                                   (kRowsCompared * kMotionBlock);
            if (still < 2) continue;
            ++changing;
            unexplained += vector.error * 2 > still ? 1 : 0;
        }
    }
    return changing < 8 ? 0 : unexplained * 100 / changing;
}

// The nodes around a tile, and what they predict for it.
struct Tile {
    std::array<NodeMotion, 4> nodes;

    bool alike() const {
        return nodes[0] == nodes[1] && nodes[0] == nodes[2] && nodes[0] == nodes[3];
    }
    bool apart() const {
        const auto far = [&](const NodeMotion& a, const NodeMotion& b) {
            const int dx = (a.newerX - a.olderX) - (b.newerX - b.olderX);
            const int dy = (a.newerY - a.olderY) - (b.newerY - b.olderY);
            return std::max(std::abs(dx), std::abs(dy)) > kApart;
        };
        return far(nodes[0], nodes[3]) || far(nodes[1], nodes[2]) || far(nodes[0], nodes[1]);
    }
};

Tile tileAt(const MotionPlan& plan, int column, int row) {
    return {{plan.at(column, row), plan.at(column + 1, row), plan.at(column, row + 1),
             plan.at(column + 1, row + 1)}};
}

// Reads both sources where a node's motion leads from a tile.
class Reader {
  public:
    Reader(const SubpixelPlanes& older, const SubpixelPlanes& newer)
        : mOlder(older), mNewer(newer) {}

    // All of both places lies well within the rim for a tile, so no place has to be moved.
    TileSource luma(const NodeMotion& node, int x, int y) const {
        bool inOlder = false, inNewer = false;
        const QuarterPlace older = clamped(x, y, node.olderX, node.olderY, &inOlder);
        const QuarterPlace newer = clamped(x, y, node.newerX, node.newerY, &inNewer);
        return {mOlder.at(older), mNewer.at(newer), share(node, inOlder, inNewer)};
    }
    ChromaSource chroma(const NodeMotion& node, int x, int y) const {
        bool inOlder = false, inNewer = false;
        const QuarterPlace older = clamped(x, y, node.olderX, node.olderY, &inOlder);
        const QuarterPlace newer = clamped(x, y, node.newerX, node.newerY, &inNewer);
        return {mOlder.chroma(older.x >> 3, older.y >> 3),
                mNewer.chroma(newer.x >> 3, newer.y >> 3),
                older.x & 7,
                older.y & 7,
                newer.x & 7,
                newer.y & 7,
                share(node, inOlder, inNewer)};
    }
    bool inside(const NodeMotion& node, int x, int y) const {
        bool inOlder = false, inNewer = false;
        clamped(x, y, node.olderX, node.olderY, &inOlder);
        clamped(x, y, node.newerX, node.newerY, &inNewer);
        return inOlder && inNewer;
    }

  private:
    // Further out than this there is no rim to read.
    static constexpr int kOut = SubpixelPlanes::kRim - 8;

    QuarterPlace clamped(int x, int y, int dx, int dy, bool* inside) const {
        const int lastX = 4 * (mNewer.width() - kNodeStep);
        const int lastY = 4 * (mNewer.height() - kNodeStep);
        const int toX = 4 * x + dx;
        const int toY = 4 * y + dy;
        *inside = toX >= -4 && toY >= -4 && toX <= std::max(4 * x, lastX) + 4 &&
                  toY <= std::max(4 * y, lastY) + 4;
        return {std::clamp(toX, -4 * kOut, lastX + 4 * kOut),
                std::clamp(toY, -4 * kOut, lastY + 4 * kOut)};
    }
    // Where the motion leads out of one source, the other alone is used.
    static int share(const NodeMotion& node, bool inOlder, bool inNewer) {
        return inOlder == inNewer ? node.newerShare : inNewer ? kWholeShare : 0;
    }

    const SubpixelPlanes& mOlder;
    const SubpixelPlanes& mNewer;
};

// Calls span(tile, x, y, columns) for tiles alike, as many in a row as there are, and tile(tile, x,
// y) for the others.
template <typename Span, typename One>
void forEachTile(const MotionPlan& plan, const Reader& reader, int width, Span span, One one,
                 int row) {
    const int y = row * kNodeStep;
    const int columns = plan.columns() - 1;
    for (int column = 0; column < columns;) {
        // The last tile of a row that eight does not divide overlaps the one before.
        const int x = std::min(column * kNodeStep, width - kNodeStep);
        const Tile tile = tileAt(plan, column, row);
        if (!tile.alike()) {
            one(tile, x, y);
            ++column;
            continue;
        }
        int count = 1;
        if (reader.inside(tile.nodes[0], x, y)) {
            while (column + count < columns && (column + count + 1) * kNodeStep <= width &&
                   tileAt(plan, column + count, row).alike() &&
                   plan.at(column + count, row) == tile.nodes[0] &&
                   reader.inside(tile.nodes[0], x + count * kNodeStep, y)) {
                ++count;
            }
        }
        span(tile, x, y, count);
        column += count;
    }
}

}  // namespace

void Interpolator::prepare(const NumberedView& older, const NumberedView& newer) {
    if (mNewer.number == older.number) std::swap(mOlder, mNewer);
    for (auto [planes, source] : {std::pair{&mOlder, &older}, std::pair{&mNewer, &newer}}) {
        if (planes->number == source->number) continue;
        planes->planes.build(source->view);
        planes->number = source->number;
    }
    const MotionVector& any = mFields.forward[0];
    mFades = any.gain != 0 || any.offset != 0;
    if (!mFades) return;
    mBrightened.resize(older.view.stride * older.view.size.height);
    changeBrightness(older.view.luma, mBrightened.data(), mBrightened.size(), any.gain, any.offset);
    Nv12View changed = older.view;
    changed.luma = mBrightened.data();
    mAsBright.build(changed);
}

void Interpolator::beginInterval(const NumberedView& older, const NumberedView& newer,
                                 const MotionFields& fields) {
    mFields = fields;
    if (!fields || !MotionPlan::canServe(older.view.size)) {
        mWay = Way::Blend;
    } else {
        mWay = isCut(fields, older.view.size) ? Way::Repeat : Way::Follow;
    }
    if (mWay != Way::Follow) return;
    prepare(older, newer);
    const SubpixelPlanes& before = mFades ? mAsBright : mOlder.planes;
    if (unexplainedPercent(fields.forward, before, mNewer.planes) > kDissolvePercent &&
        unexplainedPercent(fields.backward, mNewer.planes, before) > kDissolvePercent) {
        mWay = Way::Blend;
    }
}

void Interpolator::write(const Nv12View& older, const Nv12View& newer, Phase phase,
                         const Nv12Canvas& to) {
    switch (mWay) {
        case Way::Repeat:
            copyFrame(2 * phase.index < phase.steps ? older : newer, to);
            break;
        case Way::Blend:
            blend(older, newer, phase, to);
            break;
        case Way::Follow:
            mPlan.lay(mFades ? mAsBright : mOlder.planes, mNewer.planes, mFields, phase);
            writeLuma(to);
            writeChroma(to);
            mStatic.find(mFades ? mAsBright : mOlder.planes, mNewer.planes, mPlan);
            mStatic.restore(mOlder.planes, mNewer.planes, mPlan, to);
            break;
    }
}

void Interpolator::writeLuma(const Nv12Canvas& to) const {
    const Reader reader(mOlder.planes, mNewer.planes);
    const ptrdiff_t stride = mNewer.planes.stride();
    const auto toStride = static_cast<ptrdiff_t>(to.stride);
    const auto height = static_cast<int>(to.size.height);
    for (int row = 0; row * kNodeStep < height; ++row) {
        const int rows = std::min(kNodeStep, height - row * kNodeStep);
        const auto out = [&](int x, int y) { return to.luma + y * toStride + x; };
        forEachTile(
            mPlan, reader, static_cast<int>(to.size.width),
            [&](const Tile& tile, int x, int y, int count) {
                writeSpan(reader.luma(tile.nodes[0], x, y), stride, out(x, y), toStride,
                          static_cast<size_t>(count) * static_cast<size_t>(kNodeStep), rows);
            },
            [&](const Tile& tile, int x, int y) {
                const TileSource sources[4] = {
                    reader.luma(tile.nodes[0], x, y), reader.luma(tile.nodes[1], x, y),
                    reader.luma(tile.nodes[2], x, y), reader.luma(tile.nodes[3], x, y)};
                (tile.apart() ? weighTile : mixTile)(sources, stride, out(x, y), toStride, rows);
            },
            row);
    }
}

void Interpolator::writeChroma(const Nv12Canvas& to) const {
    const Reader reader(mOlder.planes, mNewer.planes);
    const ptrdiff_t stride = mNewer.planes.stride();
    const auto toStride = static_cast<ptrdiff_t>(to.stride);
    const auto height = static_cast<int>(to.chromaRows());
    for (int row = 0; row * kNodeStep / 2 < height; ++row) {
        const int rows = std::min(kNodeStep / 2, height - row * kNodeStep / 2);
        const auto out = [&](int x, int y) { return to.chroma + y / 2 * toStride + x; };
        forEachTile(
            mPlan, reader, static_cast<int>(to.chromaBytes()),
            [&](const Tile& tile, int x, int y, int count) {
                vppservice::writeChroma(
                    reader.chroma(tile.nodes[0], x & ~1, y), stride, out(x & ~1, y), toStride,
                    static_cast<size_t>(count) * static_cast<size_t>(kNodeStep), rows);
            },
            [&](const Tile& tile, int x, int y) {
                x &= ~1;
                const ChromaSource sources[4] = {
                    reader.chroma(tile.nodes[0], x, y), reader.chroma(tile.nodes[1], x, y),
                    reader.chroma(tile.nodes[2], x, y), reader.chroma(tile.nodes[3], x, y)};
                mixChroma(sources, stride, out(x, y), toStride, rows);
            },
            row);
    }
}

void copyFrame(const Nv12View& from, const Nv12Canvas& to) {
    libyuv::CopyPlane(from.luma, static_cast<int>(from.stride), to.luma,
                      static_cast<int>(to.stride), static_cast<int>(to.size.width),
                      static_cast<int>(to.size.height));
    libyuv::CopyPlane(from.chroma, static_cast<int>(from.stride), to.chroma,
                      static_cast<int>(to.stride), static_cast<int>(to.chromaBytes()),
                      static_cast<int>(to.chromaRows()));
}

}  // namespace qoz::host::vppservice
