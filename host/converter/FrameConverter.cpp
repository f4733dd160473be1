// SPDX-License-Identifier: Apache-2.0
#include <host/converter/ColourKernels.h>
#include <host/converter/FrameConverter.h>
#include <libyuv/scale.h>

namespace qoz::host {
namespace {

// Computes a matrix from the weights of red and blue in luma, which define a standard (BT.601 and
// BT.709). Of the 255 steps, limited range keeps 219 for luma and 224 for chroma.
constexpr ColourMatrix matrixOf(double red, double blue) {
    const auto share = [](double value, double steps) {
        const double scaled = value * steps / 255 * kColourUnit;
        return static_cast<int16_t>(scaled + (scaled < 0 ? -0.5 : 0.5));
    };
    const double u = 2 * (1 - blue);
    const double v = 2 * (1 - red);
    ColourMatrix matrix = {{share(red, 219), 0, share(blue, 219)},
                           {share(-red / u, 224), 0, share(0.5, 224)},
                           {share(0.5, 224), 0, share(-blue / v, 224)}};
    // The weight of green is the remainder, so that rounding changes neither grey nor the brightest
    // white.
    matrix.y[1] = static_cast<int16_t>(share(1, 219) - matrix.y[0] - matrix.y[2]);
    matrix.u[1] = static_cast<int16_t>(-matrix.u[0] - matrix.u[2]);
    matrix.v[1] = static_cast<int16_t>(-matrix.v[0] - matrix.v[2]);
    return matrix;
}
constexpr ColourMatrix kBt601 = matrixOf(0.299, 0.114);
constexpr ColourMatrix kBt709 = matrixOf(0.2126, 0.0722);

// Converts an RGBA frame to a target of the same size, two rows at a time.
void convertRgba(const MappedBuffer& source, const Nv12Picture& target) {
    const ColourMatrix& matrix = isHighDefinition(source.height()) ? kBt709 : kBt601;
    const size_t stride = rgbaStride(source.width());
    for (int y = 0; y < target.height; y += 2) {
        const ptrdiff_t down = y + 1 < target.height ? 1 : 0;
        const uint8_t* upper = source.pixels() + static_cast<size_t>(y) * stride;
        uint8_t* luma = target.luma + static_cast<ptrdiff_t>(y) * target.stride;
        rgbaToNv12(matrix,
                   {upper, upper + down * static_cast<ptrdiff_t>(stride), luma,
                    luma + down * target.stride,
                    target.chroma + static_cast<ptrdiff_t>(y / 2) * target.stride},
                   source.width());
    }
}

bool sameSize(const MappedBuffer& source, const Nv12Picture& target) {
    return static_cast<int>(source.width()) == target.width &&
           static_cast<int>(source.height()) == target.height;
}

}  // namespace

bool FrameConverter::convert(const MappedBuffer& source, const Nv12Picture& target) {
    if (source.nv12()) return scale(source.picture(), target);
    if (sameSize(source, target)) {
        convertRgba(source, target);
        return true;
    }

    // Scaling after the conversion moves 1.5 bytes a pixel instead of 4.
    prepare(source.width(), source.height());
    const auto whole = Nv12Picture::over(mScratch.data(), source.width(), source.height());
    convertRgba(source, whole);
    return scale(whole, target);
}

bool FrameConverter::scale(const Nv12Picture& from, const Nv12Picture& to) {
    return libyuv::NV12Scale(from.luma, from.stride, from.chroma, from.stride, from.width,
                             from.height, to.luma, to.stride, to.chroma, to.stride, to.width,
                             to.height, libyuv::kFilterBox) == 0;
}

void FrameConverter::prepare(uint32_t width, uint32_t height) {
    mScratch.resize(nv12Layout(width, height).size);
}

}  // namespace qoz::host
