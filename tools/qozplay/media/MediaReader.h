// SPDX-License-Identifier: Apache-2.0
// A clip in whatever container, codec and pixel format libavformat and libavcodec know, as RGBA
// frames. Owned by the player; used on the thread of one session once it has been opened.
#pragma once

#include <android/binder_auto_utils.h>

#include <string>

#include "qozplay/media/Frames.h"
#include "qozplay/media/MediaIo.h"

namespace qozplay {

class MediaReader final : public FrameSource {
  public:
    // "-" is standard input. With `rawSize` the input is RGBA frames and nothing else, `rawRate` of
    // them a second. Throws BadInput. A stop request ends the clip.
    MediaReader(const std::string& path, std::optional<Size> rawSize, AVRational rawRate,
                const StopRequest& stop);

    std::optional<int64_t> next(uint8_t* rgba, size_t stride) override;
    AudioTracks* audio() override { return &mAudio; }

  private:
    void openFile(const std::string& path);
    void openContainer(std::optional<Size> rawSize, AVRational rawRate);
    void chooseStreams();
    void openDecoder();
    void describe();
    std::optional<uint64_t> length() const;
    void refuseRotation() const;
    bool decode();
    void feed();
    [[noreturn]] void damaged(int error) const;
    void checkWhole();
    void take(AvPtr<AVPacket> packet);
    AVColorSpace matrixOf(const AVFrame& frame) const;
    bool convertExactly(uint8_t* rgba, size_t stride) const;
    void convert(uint8_t* rgba, size_t stride);
    void advanceTime();
    const AVStream& stream() const { return *mContainer->streams[mVideo]; }

    std::string mName;
    ndk::ScopedFileDescriptor mFile;
    const StopRequest& mStop;
    std::optional<MediaIo> mIo;
    AvPtr<AVFormatContext> mContainer;
    size_t mVideo = 0;                // index of its stream
    std::vector<int> mTrackOfStream;  // -1: not copied
    AvPtr<AVCodecContext> mDecoder;
    AvPtr<AVFrame> mFrame;
    AvPtr<AVFrame> mConverted;  // where rows need room behind them
    AvPtr<SwsContext> mScaler;

    AudioTracks mAudio;

    int64_t mStart = 0;      // of the clip, microseconds
    int64_t mTime = -1;      // of the last frame, nanoseconds from there
    uint64_t mFrames = 0;    // given
    int64_t mWholeUpTo = 0;  // bytes of the file that were in packets
    std::string mDamage;     // to be reported once the frames before it are out
};

}  // namespace qozplay
