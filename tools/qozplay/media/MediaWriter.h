// SPDX-License-Identifier: Apache-2.0
// The output clip.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "qozplay/media/Frames.h"
#include "qozplay/media/MediaIo.h"
#include "qozplay/media/OutputFile.h"

namespace qozplay {

// Encodes the output frames of the first session. A path that ends in .y4m or has no ending, such
// as a pipe, receives y4m, which has a constant rate and no audio. The other containers store the
// timestamps of the frames and the audio of the input. Owned by Outputs. The first session's thread
// calls take(); the player's thread calls finish() after that thread has ended.
class MediaWriter final : public FrameSink {
  public:
    // A container that the player can write.
    struct Container {
        const char* ending;  // of file names
        const char* muxer;
        AVCodecID codec;
        bool keepsTimes;  // stores timestamps and audio
    };

    // `info` describes the output frames; its rate is the one that y4m uses. `audio` may be null.
    // Throws BadInput if the ending is unknown or the file cannot be written.
    MediaWriter(const std::string& path, const ClipInfo& info, AudioTracks* audio,
                const StopRequest& stop);

    // Encodes a frame. All frames of a clip have the size of the first one; others are scaled.
    // Returns false if the reader of a pipe has closed it, or after a stop request during a wait.
    bool take(const FinishedFrame& frame) override;

    // Completes the clip and moves it to its final name. Does nothing if there was no frame or
    // writing has failed; there is then no clip. Throws SessionFailed.
    void finish();

    uint64_t frames() const { return mFrames; }
    uint64_t scaled() const { return mScaledFrames; }
    bool keepsTimes() const { return mKind.keepsTimes; }
    // The codecs of the audio tracks that the container cannot store.
    const std::vector<std::string>& leftOut() const { return mLeftOut; }

  private:
    void open(const FinishedFrame& first);
    void openEncoder(const FinishedFrame& first);
    void addAudio();
    void convert(const FinishedFrame& frame);
    bool encode(const AVFrame* frame);
    bool writeAudio();
    bool write(AVPacket* packet);
    bool failed(int error);

    const Container& mKind;
    OutputFile mFile;
    const ClipInfo mInfo;
    AudioTracks* const mAudio;
    MediaIo mIo;
    AvPtr<AVFormatContext> mMuxer;
    AvPtr<AVCodecContext> mEncoder;
    AvPtr<AVFrame> mFrame;
    AvPtr<AVPacket> mPacket;
    AvPtr<SwsContext> mScaler;
    std::vector<int> mStreamOfTrack;  // -1 for a track that the container cannot store
    std::vector<std::string> mLeftOut;
    uint64_t mFrames = 0;
    uint64_t mScaledFrames = 0;
    bool mReaderGone = false;
    bool mFailed = false;
};

}  // namespace qozplay
