// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/Interpolator.h"

#include <libyuv/planar_functions.h>

#include <algorithm>
#include <utility>

#include "host/vppservice/FrameWriter.h"
#include "host/vppservice/UnexplainedBlocks.h"

namespace qoz::host::vppservice {
namespace {

// In percent of the blocks with texture: if more of them have no match, in both fields, the pair is
// a scene cut and the nearer source is repeated.
constexpr uint32_t kCutPercent = 40;

// In percent of the blocks that change: if the motion fails to explain more of them, in both
// fields, one picture dissolves into another and the two are blended.
constexpr uint32_t kDissolvePercent = 75;

// In grey levels. A block has no match if its error is above this floor and above three quarters of
// its texture.
constexpr uint32_t kUnlikeFloor = 6;

// Rows of tiles that are planned and written together: the pixels that were read for the plan are
// still in the cache when they are written.
constexpr int kRowsAtOnce = 4;

// Blends the two sources by time.
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

// Returns the share of the field's blocks with texture that have no match, in percent.
uint32_t unlikePercent(const MotionVector* field, size_t blocks) {
    uint32_t unlike = 0;
    uint32_t compared = 0;
    for (size_t i = 0; i < blocks; ++i) {
        const MotionVector& v = field[i];
        if (v.error == UINT8_MAX || v.texture < 3) continue;  // leaves the picture, or is flat
        ++compared;
        if (v.error > kUnlikeFloor && v.error > v.texture * 3 / 4) ++unlike;
    }
    return percentOf(unlike, compared);
}

// A pair is a scene cut only if both fields say so: new content alone leaves blocks of one field
// without a match.
bool isCut(const MotionFields& fields, FrameSize size) {
    const size_t blocks = size_t{fieldWidth(size.width)} * fieldHeight(size.height);
    return unlikePercent(fields.forward, blocks) > kCutPercent &&
           unlikePercent(fields.backward, blocks) > kCutPercent;
}

}  // namespace

// The newer source of the last interval usually is the older one of this interval, and its planes
// are reused.
void Interpolator::prepare(const NumberedView& older, const NumberedView& newer,
                           const MotionVector& any) {
    if (mNewer.number == older.number) std::swap(mOlder, mNewer);
    for (auto [planes, source] : {std::pair{&mOlder, &older}, std::pair{&mNewer, &newer}}) {
        if (planes->number == source->number) continue;
        planes->planes.build(source->view);
        planes->number = source->number;
    }
    mFades = any.gain != 0 || any.offset != 0;
    if (!mFades) return;
    mAsBright.buildLuma(older.view, any.gain, any.offset);
}

// The cheap decisions come first: scene cuts are found from the fields alone, before any plane is
// built.
void Interpolator::beginInterval(const NumberedView& older, const NumberedView& newer,
                                 const MotionFields& fields) {
    if (!fields || !MotionPlan::canServe(older.view.size)) {
        mWay = Way::Blend;
    } else {
        mWay = isCut(fields, older.view.size) ? Way::Repeat : Way::Follow;
    }
    if (mWay != Way::Follow) return;
    prepare(older, newer, fields.forward[0]);
    const auto [there, back] =
        unexplainedPercent(fields, mFades ? mAsBright : mOlder.planes, mNewer.planes);
    if (there > kDissolvePercent && back > kDissolvePercent) {
        mWay = Way::Blend;
        return;
    }
    mPlan.take(fields, older.view.size);
}

// With motion, the frame is written a few rows of tiles at a time: plan, luma, chroma, suspects.
// The static layer follows at the end, because a suspect needs its neighbours in the next rows.
void Interpolator::write(const Nv12View& older, const Nv12View& newer, Phase phase,
                         const Nv12Canvas& to) {
    switch (mWay) {
        case Way::Repeat:
            copyFrame(2 * phase.index < phase.steps ? older : newer, to);
            break;
        case Way::Blend:
            blend(older, newer, phase, to);
            break;
        case Way::Follow: {
            const SubpixelPlanes& asBright = mFades ? mAsBright : mOlder.planes;
            mPlan.begin(phase);
            mStatic.begin(to.size);
            for (int row = 0; row < mPlan.tileRows(); row += kRowsAtOnce) {
                const TileRows tiles = {row, std::min(row + kRowsAtOnce, mPlan.tileRows())};
                mPlan.lay(asBright, mNewer.planes, tiles);
                writeLuma(mPlan, mOlder.planes, asBright, mNewer.planes, tiles, to);
                writeChroma(mPlan, mOlder.planes, mNewer.planes, tiles, to);
                mStatic.suspect(asBright, mNewer.planes, mPlan, tiles);
            }
            mStatic.restore(mOlder.planes, mNewer.planes, mPlan, to);
            break;
        }
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
