#include <host/converter/FrameConverter.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/scale.h>

namespace qoz::host {
namespace {

bool convertRgba(const MappedBuffer& source, const Nv12Picture& target) {
    // The library names pixels by their little-endian word: bytes R, G, B, A are its ABGR.
    return libyuv::ABGRToNV12(source.pixels(), static_cast<int>(rgbaStride(source.width())),
                              target.luma, target.stride, target.chroma, target.stride,
                              target.width, target.height) == 0;
}

bool sameSize(const MappedBuffer& source, const Nv12Picture& target) {
    return static_cast<int>(source.width()) == target.width &&
           static_cast<int>(source.height()) == target.height;
}

}  // namespace

bool FrameConverter::convert(const MappedBuffer& source, const Nv12Picture& target) {
    if (source.nv12()) return scale(source.picture(), target);
    if (sameSize(source, target)) return convertRgba(source, target);

    // Scaling after the conversion moves 1.5 bytes a pixel instead of 4.
    prepare(source.width(), source.height());
    const auto whole = Nv12Picture::over(mScratch.data(), source.width(), source.height());
    return convertRgba(source, whole) && scale(whole, target);
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
