// Clips in files and pipes.
#include "qozplay/media/FrameSource.h"
#include "qozplay/media/InputFile.h"
#include "qozplay/media/Y4mHeader.h"

#include <libyuv.h>

#include <vector>

namespace qozplay {
namespace {

constexpr size_t kLineLimit = 1024;  // bytes; a header line is far shorter

std::string cutShort(const InputFile& file, uint64_t frame, size_t got, size_t whole) {
    return format("%s: frame %llu is cut short, %zu of its %zu bytes are there",
                  file.name().c_str(), static_cast<unsigned long long>(frame), got, whole);
}

std::string headerLine(InputFile& file) {
    std::optional<std::string> line = file.line(kLineLimit);
    if (!line) throw BadInput(file.name() + " is empty");
    return *line;
}

class Y4mClip final : public FrameSource {
  public:
    explicit Y4mClip(const std::string& path) : mFile(path) {
        const std::string line = headerLine(mFile);
        mHeader = parseY4mHeader(line, mFile.name());
        mPicture.resize(i420Bytes(mHeader.size));
        mHeaderBytes = line.size() + 1;
    }

    Size size() const override { return mHeader.size; }
    Rate rate() const override { return mHeader.rate; }

    std::optional<uint64_t> length() const override {
        constexpr size_t kFrameLine = 6;  // "FRAME" and its line feed; parameters are rare
        const std::optional<uint64_t> bytes = mFile.bytes();
        if (!bytes) return std::nullopt;
        return (*bytes - mHeaderBytes) / (kFrameLine + mPicture.size());
    }

    bool next(uint8_t* rgba, size_t stride) override {
        const std::optional<std::string> line = mFile.line(kLineLimit);
        if (!line) return false;
        if (line->rfind("FRAME", 0) != 0) {
            throw BadInput(mFile.name() + ": frame " + std::to_string(mFrame) +
                           " does not begin with FRAME");
        }
        const size_t got = mFile.read(mPicture.data(), mPicture.size());
        if (got < mPicture.size()) {
            throw BadInput(cutShort(mFile, mFrame, got, mPicture.size()));
        }
        convert(rgba, static_cast<int>(stride));
        ++mFrame;
        return true;
    }

  private:
    void convert(uint8_t* rgba, int stride) const {
        const int width = static_cast<int>(mHeader.size.width);
        const int height = static_cast<int>(mHeader.size.height);
        const int chromaWidth = (width + 1) / 2;
        const uint8_t* y = mPicture.data();
        const uint8_t* u = y + static_cast<size_t>(width) * height;
        const uint8_t* v = u + static_cast<size_t>(chromaWidth) * ((height + 1) / 2);
        const auto toRgba = mHeader.fullRange ? libyuv::J420ToABGR : libyuv::I420ToABGR;
        toRgba(y, width, u, chromaWidth, v, chromaWidth, rgba, stride, width, height);
    }

    InputFile mFile;
    Y4mHeader mHeader;
    size_t mHeaderBytes = 0;
    std::vector<uint8_t> mPicture;
    uint64_t mFrame = 0;
};

class RawClip final : public FrameSource {
  public:
    RawClip(const std::string& path, Size size, Rate rate) : mFile(path), mSize(size), mRate(rate) {
        if (mFile.bytes() == 0U) throw BadInput(mFile.name() + " is empty");
    }

    Size size() const override { return mSize; }
    Rate rate() const override { return mRate; }

    std::optional<uint64_t> length() const override {
        const std::optional<uint64_t> bytes = mFile.bytes();
        if (!bytes) return std::nullopt;
        return *bytes / (rowBytes() * mSize.height);
    }

    bool next(uint8_t* rgba, size_t stride) override {
        size_t got = 0;
        for (uint32_t row = 0; row < mSize.height; ++row) {
            const size_t part = mFile.read(rgba + row * stride, rowBytes());
            got += part;
            if (part < rowBytes()) break;
        }
        if (got == 0) return false;
        if (got < rowBytes() * mSize.height) {
            throw BadInput(cutShort(mFile, mFrame, got, rowBytes() * mSize.height));
        }
        ++mFrame;
        return true;
    }

  private:
    size_t rowBytes() const { return static_cast<size_t>(mSize.width) * 4; }

    InputFile mFile;
    const Size mSize;
    const Rate mRate;
    uint64_t mFrame = 0;
};

}  // namespace

std::unique_ptr<FrameSource> openY4m(const std::string& path) {
    return std::make_unique<Y4mClip>(path);
}

std::unique_ptr<FrameSource> openRaw(const std::string& path, Size size, Rate rate) {
    return std::make_unique<RawClip>(path, size, rate);
}

}  // namespace qozplay
