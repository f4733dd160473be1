// SPDX-License-Identifier: Apache-2.0
// The interfaces between a session and its input and outputs. Each session has its own source. It
// calls the source, and its sinks one after the other, on its own thread.
#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <vector>

#include "qozplay/media/Av.h"

namespace qozplay {

// The colour matrix for a clip of this size that does not name one. It is also the matrix that the
// converter uses for sources of this size, to produce limited-range YUV.
inline AVColorSpace usualMatrix(Size size) {
    constexpr uint32_t kHighDefinition = 720;  // rows
    return size.height >= kHighDefinition ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
}

// The properties of a clip. The processing does not change the aspect ratio and the colours, so
// these are copied to the output.
struct ClipInfo {
    Size size;
    AVRational rate{30, 1};          // frames per second; the average if it varies
    std::optional<uint64_t> length;  // number of frames; nullopt if unknown, as for a pipe
    AVRational sampleAspect{1, 1};
    AVColorPrimaries primaries = AVCOL_PRI_UNSPECIFIED;
    AVColorTransferCharacteristic transfer = AVCOL_TRC_UNSPECIFIED;
};

// The audio of a clip, which bypasses the processing: MediaReader adds the packets that it reads
// and MediaWriter removes them. Both run on the thread of the first session. MediaReader owns the
// object.
struct AudioTracks {
    struct Track {
        AvPtr<AVCodecParameters> parameters;
        AVRational timeBase;
    };
    struct Packet {
        size_t track;
        AvPtr<AVPacket> data;  // with times relative to the start of the clip
    };

    std::vector<Track> tracks;
    std::deque<Packet> packets;
};

// The source of a session's frames: a clip in a file or pipe, or the built-in scene.
class FrameSource {
  public:
    virtual ~FrameSource() = default;

    const ClipInfo& info() const { return mInfo; }

    // Writes the next frame as RGBA bytes in rows of `stride` bytes. Returns its presentation time
    // in nanoseconds from the start of the clip, which is greater than that of the previous frame,
    // or nullopt at the end. Throws BadInput if the clip is damaged.
    virtual std::optional<int64_t> next(uint8_t* rgba, size_t stride) = 0;

    // The audio of the clip; null if the source has none.
    virtual AudioTracks* audio() { return nullptr; }

  protected:
    ClipInfo mInfo;
};

// An output frame of a session. The picture is a view of the output buffer.
struct FinishedFrame {
    uint64_t timestamp;  // microseconds
    bool source;         // true for a source frame, false for an interpolated one
    Nv12View picture;    // limited range
    AVColorSpace matrix = AVCOL_SPC_SMPTE170M;
};

// A receiver of output frames.
class FrameSink {
  public:
    virtual ~FrameSink() = default;

    // Receives a frame; the picture is valid only during the call. Returns false if the sink wants
    // no more frames, which ends the session. Throws SessionFailed.
    virtual bool take(const FinishedFrame& frame) = 0;
};

}  // namespace qozplay
