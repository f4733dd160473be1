#include "host/vppservice/Interpolator.h"

#include <libyuv/planar_functions.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace qoz::host::vppservice {
namespace {

// Mean error of all blocks beyond which the two sources are different scenes. Footage that moves
// stays below 10.
constexpr uint64_t kCutError = 32;

// Eight samples at a time: the compilers' vector types say so on every target.
using Bytes = uint8_t __attribute__((vector_size(8)));
using Words = uint16_t __attribute__((vector_size(16)));
constexpr int kLanes = 8;

Words load(const uint8_t* from) {
    Bytes bytes;
    std::memcpy(&bytes, from, sizeof bytes);
    return __builtin_convertvector(bytes, Words);
}

void store(uint8_t* to, Words words) {
    const Bytes bytes = __builtin_convertvector(words, Bytes);
    std::memcpy(to, &bytes, sizeof bytes);
}

uint16_t word(int value) {
    return static_cast<uint16_t>(value);
}

constexpr int kWhole = 64;  // both sources' shares of a pixel

// Both luma and chroma are planes of bytes here; a chroma sample is a pair of them.
struct Plane {
    const uint8_t* older;
    const uint8_t* newer;
    uint8_t* to;
    size_t stride;
    size_t toStride;
    int bytes;  // of a row
    int rows;
    int shift;       // offsets are divided by two to this power
    int sample;      // bytes of one
    int tall;        // rows between two nodes
    int newerShare;  // of kWhole

    int offsetX(int pixels) const { return (pixels >> shift) * sample; }
};

// One source's pixels at a node's motion, ready to be read row by row.
struct Prediction {
    const uint8_t* older;
    const uint8_t* newer;
    uint16_t olderShare;
    uint16_t newerShare;

    Words row(size_t offset) const {
        const Words mixed = load(older + offset) * olderShare + load(newer + offset) * newerShare;
        return (mixed + word(kWhole / 2)) / word(kWhole);
    }
};

// Where the motion leads out of one source, the other alone is used.
Prediction predict(const Plane& plane, const NodeMotion& node, int x, int y, int rows) {
    const int lastX = plane.bytes - kLanes;
    const int lastY = plane.rows - rows;
    const auto place = [&](int dx, int dy, bool* inside) {
        const int wantX = x + plane.offsetX(dx);
        const int wantY = y + (dy >> plane.shift);
        const int atX = std::clamp(wantX, 0, lastX);
        const int atY = std::clamp(wantY, 0, lastY);
        *inside = atX == wantX && atY == wantY;
        return static_cast<size_t>(atY) * plane.stride + static_cast<size_t>(atX);
    };
    bool inOlder = false;
    bool inNewer = false;
    const size_t older = place(node.olderX, node.olderY, &inOlder);
    const size_t newer = place(node.newerX, node.newerY, &inNewer);
    const int share = inOlder == inNewer ? plane.newerShare : inNewer ? kWhole : 0;
    return {plane.older + older, plane.newer + newer, word(kWhole - share), word(share)};
}

// Shares of the right-hand node, of 16, at the centres of the samples between two nodes.
constexpr Words kLumaRight = {1, 3, 5, 7, 9, 11, 13, 15};
constexpr Words kChromaRight = {2, 2, 6, 6, 10, 10, 14, 14};

struct Corners {
    NodeMotion topLeft;
    NodeMotion topRight;
    NodeMotion bottomLeft;
    NodeMotion bottomRight;

    bool alike() const {
        return topLeft == topRight && topLeft == bottomLeft && topLeft == bottomRight;
    }
};

void writeAlike(const Plane& plane, const NodeMotion& node, int x, int y, int rows) {
    const Prediction prediction = predict(plane, node, x, y, rows);
    uint8_t* to = plane.to + static_cast<size_t>(y) * plane.toStride + static_cast<size_t>(x);
    for (int i = 0; i < rows; ++i) {
        store(to, prediction.row(static_cast<size_t>(i) * plane.stride));
        to += plane.toStride;
    }
}

void writeMixed(const Plane& plane, const Corners& corners, int x, int y, int rows) {
    const Prediction topLeft = predict(plane, corners.topLeft, x, y, rows);
    const Prediction topRight = predict(plane, corners.topRight, x, y, rows);
    const Prediction bottomLeft = predict(plane, corners.bottomLeft, x, y, rows);
    const Prediction bottomRight = predict(plane, corners.bottomRight, x, y, rows);
    const Words right = plane.sample == 1 ? kLumaRight : kChromaRight;
    const Words left = word(16) - right;
    uint8_t* to = plane.to + static_cast<size_t>(y) * plane.toStride + static_cast<size_t>(x);
    for (int i = 0; i < rows; ++i) {
        const size_t offset = static_cast<size_t>(i) * plane.stride;
        const Words top = topLeft.row(offset) * left + topRight.row(offset) * right;
        const Words bottom = bottomLeft.row(offset) * left + bottomRight.row(offset) * right;
        const int below = (2 * i + 1) * 8 / plane.tall;  // share of the lower nodes, of 16
        store(to, (top * word(16 - below) + bottom * word(below) + word(128)) / word(256));
        to += plane.toStride;
    }
}

void follow(const Plane& plane, const MotionPlan& plan) {
    for (int row = 0; row * plane.tall < plane.rows; ++row) {
        const int y = row * plane.tall;
        const int rows = std::min(plane.tall, plane.rows - y);
        for (int column = 0; column * kLanes < plane.bytes; ++column) {
            // The last stretch of a row that eight does not divide overlaps the one before.
            const int x = std::min(column * kLanes, plane.bytes - kLanes);
            const Corners corners = {plan.at(column, row), plan.at(column + 1, row),
                                     plan.at(column, row + 1), plan.at(column + 1, row + 1)};
            if (corners.alike()) {
                writeAlike(plane, corners.topLeft, x, y, rows);
            } else {
                writeMixed(plane, corners, x, y, rows);
            }
        }
    }
}

Plane lumaOf(const Nv12View& older, const Nv12View& newer, const Nv12Canvas& to) {
    Plane plane = {};
    plane.older = older.luma;
    plane.newer = newer.luma;
    plane.to = to.luma;
    plane.stride = newer.stride;
    plane.toStride = to.stride;
    plane.bytes = static_cast<int>(to.size.width);
    plane.rows = static_cast<int>(to.size.height);
    plane.sample = 1;
    plane.tall = kNodeStep;
    return plane;
}

Plane chromaOf(const Nv12View& older, const Nv12View& newer, const Nv12Canvas& to) {
    Plane plane = lumaOf(older, newer, to);
    plane.older = older.chroma;
    plane.newer = newer.chroma;
    plane.to = to.chroma;
    plane.bytes = static_cast<int>(to.chromaBytes());
    plane.rows = static_cast<int>(to.chromaRows());
    plane.shift = 1;
    plane.sample = 2;
    plane.tall = kNodeStep / 2;
    return plane;
}

void blend(const Plane& plane, Phase phase) {
    libyuv::InterpolatePlane(plane.older, static_cast<int>(plane.stride), plane.newer,
                             static_cast<int>(plane.stride), plane.to,
                             static_cast<int>(plane.toStride), plane.bytes, plane.rows,
                             static_cast<int>(256 * phase.index / phase.steps));
}

bool isCut(const MotionFields& fields, FrameSize size) {
    const size_t blocks = size_t{fieldWidth(size.width)} * fieldHeight(size.height);
    uint64_t error = 0;
    uint64_t compared = 0;
    for (const MotionVector* field : {fields.forward, fields.backward}) {
        for (size_t i = 0; i < blocks; ++i) {
            if (field[i].error == UINT8_MAX) continue;  // led out of the picture
            error += field[i].error;
            ++compared;
        }
    }
    return error > kCutError * compared;
}

}  // namespace

void Interpolator::beginInterval(const MotionFields& fields, FrameSize size) {
    mFields = fields;
    if (!fields || !MotionPlan::canServe(size)) {
        mWay = Way::Blend;
    } else {
        mWay = isCut(fields, size) ? Way::Repeat : Way::Follow;
    }
}

void Interpolator::write(const Nv12View& older, const Nv12View& newer, Phase phase,
                         const Nv12Canvas& to) {
    std::array planes = {lumaOf(older, newer, to), chromaOf(older, newer, to)};
    switch (mWay) {
        case Way::Repeat:
            copyFrame(2 * phase.index < phase.steps ? older : newer, to);
            break;
        case Way::Blend:
            for (const Plane& plane : planes) {
                blend(plane, phase);
            }
            break;
        case Way::Follow:
            mPlan.lay(older, newer, mFields, phase);
            for (Plane& plane : planes) {
                plane.newerShare = static_cast<int>(kWhole * phase.index / phase.steps);
                follow(plane, mPlan);
            }
            break;
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
