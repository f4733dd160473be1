// SPDX-License-Identifier: Apache-2.0
// Finished frames as a clip: y4m for pipes and devices, else the container that the file's ending
// names, with the frames' own times and the audio of the input. Owned by the outputs; frames come
// on the first session's thread, which has ended before finish().
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "qozplay/media/Frames.h"
#include "qozplay/media/MediaIo.h"
#include "qozplay/media/OutputFile.h"

namespace qozplay {

class MediaWriter final : public FrameSink {
  public:
    // What an ending stands for.
    struct Container {
        const char* ending;
        const char* muxer;
        AVCodecID codec;
        bool keepsTimes;
    };

    // `info` is of the frames that come out: y4m knows no other time than its rate. `audio` is null
    // for none. Throws BadInput when the ending names no container of ours, or the file cannot be
    // written.
    MediaWriter(const std::string& path, const ClipInfo& info, AudioTracks* audio,
                const StopRequest& stop);

    // The clip has one size: frames of another than the first are scaled to it.
    bool take(const FinishedFrame& frame) override;

    // Ends the clip and puts it in its place; without a frame, or after a failure, there is none.
    // Throws SessionFailed.
    void finish();

    uint64_t frames() const { return mFrames; }
    uint64_t scaled() const { return mScaledFrames; }
    bool keepsTimes() const { return mKind.keepsTimes; }
    const std::vector<std::string>& leftOut() const { return mLeftOut; }  // codecs of audio

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
    std::vector<int> mStreamOfTrack;  // -1: the container does not hold it
    std::vector<std::string> mLeftOut;
    uint64_t mFrames = 0;
    uint64_t mScaledFrames = 0;
    bool mReaderGone = false;
    bool mFailed = false;
};

}  // namespace qozplay
