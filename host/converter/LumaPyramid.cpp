// SPDX-License-Identifier: Apache-2.0
#include <host/converter/BlockKernels.h>
#include <host/converter/LumaPyramid.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/planar_functions.h>
#include <libyuv/scale.h>

namespace qoz::host {
namespace {

// The pyramid ends before a level would be narrower or lower than this: in fewer pixels there is
// nothing to search.
constexpr int kMinSide = 16;

void resize(LumaPlane* plane, int width, int height) {
    plane->width = width;
    plane->height = height;
    plane->pixels.resize(static_cast<size_t>(width) * static_cast<size_t>(height));
}

// Copies the luma of an NV12 frame, or computes it from RGBA.
void readLuma(const MappedBuffer& frame, LumaPlane* plane) {
    resize(plane, static_cast<int>(frame.width()), static_cast<int>(frame.height()));
    if (frame.nv12()) {
        const Nv12Picture picture = frame.picture();
        libyuv::CopyPlane(picture.luma, picture.stride, plane->pixels.data(), plane->width,
                          plane->width, plane->height);
        return;
    }
    // Full-range luma has more steps by which blocks can be told apart. libyuv calls the byte order
    // R, G, B, A "ABGR".
    libyuv::ABGRToJ400(frame.pixels(), static_cast<int>(rgbaStride(frame.width())),
                       plane->pixels.data(), plane->width, plane->width, plane->height);
}

// Halves a plane. An odd last column or row is left out, so that each pixel stands for exactly
// four.
void halve(const LumaPlane& from, LumaPlane* to) {
    resize(to, from.width / 2, from.height / 2);
    libyuv::ScalePlane(from.pixels.data(), from.width, to->width * 2, to->height * 2,
                       to->pixels.data(), to->width, to->width, to->height, libyuv::kFilterBox);
}

}  // namespace

void LumaPyramid::build(const MappedBuffer& frame) {
    readLuma(frame, mPlanes.data());
    mLevels = 1;
    while (mLevels < kMaxLevels) {
        const LumaPlane& below = level(mLevels - 1);
        if (below.width / 2 < kMinSide || below.height / 2 < kMinSide) return;
        halve(below, &mPlanes[static_cast<size_t>(mLevels++)]);
    }
}

void LumaPyramid::change(int gain, int offset) {
    for (int i = 0; i < mLevels; ++i) {
        std::vector<uint8_t>& pixels = mPlanes[static_cast<size_t>(i)].pixels;
        changeBrightness(pixels.data(), pixels.data(), pixels.size(), gain, offset);
    }
}

}  // namespace qoz::host
