// SPDX-License-Identifier: Apache-2.0
// The frames of a clip in a file or pipe.
#pragma once

#include <android/binder_auto_utils.h>

#include <string>

#include "qozplay/media/Frames.h"
#include "qozplay/media/MediaIo.h"

namespace qozplay {

// Decodes a clip in any container, codec and pixel format that libavformat and libavcodec support,
// and converts its frames to RGBA. The player owns it and opens it on its own thread; from then on
// only the session's thread uses it.
class MediaReader final : public FrameSource {
  public:
    // Opens the clip. "-" is standard input. With `rawSize`, the input consists of raw RGBA frames
    // of that size, at `rawRate` frames per second. Throws BadInput if the clip cannot be used. A
    // stop request ends the clip early.
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
    size_t mVideo = 0;                // index of the video stream
    std::vector<int> mTrackOfStream;  // index of the audio track; -1 for any other stream
    AvPtr<AVCodecContext> mDecoder;
    AvPtr<AVFrame> mFrame;      // the frame that was decoded last
    AvPtr<AVFrame> mConverted;  // the output of the scaler, which needs longer rows
    AvPtr<SwsContext> mScaler;

    AudioTracks mAudio;

    int64_t mStart = 0;      // start time of the clip, microseconds
    int64_t mTime = -1;      // presentation time of the last frame, nanoseconds from mStart
    uint64_t mFrames = 0;    // number of frames that next() has returned
    int64_t mWholeUpTo = 0;  // offset in the file, in bytes, at which the last video packet ended
    std::string mDamage;     // error that next() reports after the frames before it
};

}  // namespace qozplay
