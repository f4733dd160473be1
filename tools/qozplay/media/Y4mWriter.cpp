#include "qozplay/media/Y4mWriter.h"

#include <libyuv.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace qozplay {
namespace {

// The planes of a tightly packed 4:2:0 picture.
struct Planes {
    uint8_t* y;
    uint8_t* u;
    uint8_t* v;
    int width;
    int height;
    int chromaWidth;
};

Planes planesOf(std::vector<uint8_t>& bytes, Size size) {
    bytes.resize(i420Bytes(size));
    const auto width = static_cast<int>(size.width);
    const auto height = static_cast<int>(size.height);
    const int chromaWidth = (width + 1) / 2;
    uint8_t* u = bytes.data() + static_cast<size_t>(width) * size.height;
    return {bytes.data(), u,      u + static_cast<size_t>(chromaWidth) * ((size.height + 1) / 2),
            width,        height, chromaWidth};
}

}  // namespace

Y4mWriter::Y4mWriter(const std::string& path, Y4mHeader header)
    : mName(path == "-" ? "standard output" : path),
      mFile(path == "-" ? stdout : std::fopen(path.c_str(), "wbe")),
      mHeader(std::move(header)) {
    if (mFile == nullptr) throw BadInput("cannot write " + mName + ": " + std::strerror(errno));
}

const uint8_t* Y4mWriter::picture(const Nv12View& view) {
    const bool scale = view.size != mHeader.size;
    const Planes from = planesOf(scale ? mUnscaled : mPicture, view.size);
    libyuv::NV12ToI420(view.luma, view.stride, view.chroma, view.stride, from.y, from.width, from.u,
                       from.chromaWidth, from.v, from.chromaWidth, from.width, from.height);
    if (scale) {
        const Planes to = planesOf(mPicture, mHeader.size);
        libyuv::I420Scale(from.y, from.width, from.u, from.chromaWidth, from.v, from.chromaWidth,
                          from.width, from.height, to.y, to.width, to.u, to.chromaWidth, to.v,
                          to.chromaWidth, to.width, to.height, libyuv::kFilterBox);
        ++mScaled;
    }
    return mPicture.data();
}

// A reader that has seen enough is no failure.
bool Y4mWriter::write(const void* data, size_t size) {
    if (std::fwrite(data, 1, size, mFile.get()) == size) return true;
    if (errno != EPIPE) {
        throw SessionFailed("cannot write " + mName + ": " + std::strerror(errno));
    }
    mReaderGone = true;
    return false;
}

bool Y4mWriter::take(const FinishedFrame& frame) {
    if (mReaderGone) return false;
    if (mFrames == 0) {
        mHeader.size = frame.picture.size;
        const std::string line = toLine(mHeader);
        if (!write(line.data(), line.size())) return false;
    }
    constexpr char kFrameLine[] = "FRAME\n";
    const uint8_t* bytes = picture(frame.picture);
    if (!write(kFrameLine, sizeof(kFrameLine) - 1)) return false;
    if (!write(bytes, i420Bytes(mHeader.size))) return false;
    ++mFrames;
    return true;
}

void Y4mWriter::finish() {
    if (mReaderGone || std::fflush(mFile.get()) == 0 || errno == EPIPE) return;
    throw SessionFailed("cannot write " + mName + ": " + std::strerror(errno));
}

}  // namespace qozplay
