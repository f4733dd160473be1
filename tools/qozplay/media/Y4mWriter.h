// Finished frames as a y4m clip. The format knows one size, so frames of another are scaled to that
// of the first.
#pragma once

#include "qozplay/media/FrameSink.h"
#include "qozplay/media/Y4mHeader.h"

#include <cstdio>
#include <memory>
#include <vector>

namespace qozplay {

class Y4mWriter final : public FrameSink {
  public:
    // "-" is standard output. The size in `header` does not count. Throws BadInput when the file
    // cannot be written.
    Y4mWriter(const std::string& path, Y4mHeader header);

    bool take(const FinishedFrame& frame) override;

    uint64_t frames() const { return mFrames; }
    uint64_t scaled() const { return mScaled; }

    // Writes out what is buffered. Throws SessionFailed.
    void finish();

  private:
    struct Close {
        void operator()(std::FILE* file) const {
            if (file != stdout) std::fclose(file);
        }
    };

    const uint8_t* picture(const Nv12View& view);
    bool write(const void* data, size_t size);

    const std::string mName;
    std::unique_ptr<std::FILE, Close> mFile;
    Y4mHeader mHeader;
    std::vector<uint8_t> mUnscaled;
    std::vector<uint8_t> mPicture;
    uint64_t mFrames = 0;
    uint64_t mScaled = 0;
    bool mReaderGone = false;
};

}  // namespace qozplay
