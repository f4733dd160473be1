// SPDX-License-Identifier: Apache-2.0
// Where frames come from and where they go. Each session has a source of its own and calls it, and
// its sinks one after the other, on its own thread.
#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <vector>

#include "qozplay/media/Av.h"

namespace qozplay {

// The matrix that is taken for a clip of this size that names none. It is also the one that the
// converter applies to sources of this size; it writes limited range.
inline AVColorSpace usualMatrix(Size size) {
    constexpr uint32_t kHighDefinition = 720;  // rows
    return size.height >= kHighDefinition ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
}

// What a clip says of its frames. The processing leaves aspect and colours as they are, and the
// output says them again.
struct ClipInfo {
    Size size;
    AVRational rate{30, 1};          // frames a second; on average, when it varies
    std::optional<uint64_t> length;  // frames; none: a pipe does not know
    AVRational sampleAspect{1, 1};
    AVColorPrimaries primaries = AVCOL_PRI_UNSPECIFIED;
    AVColorTransferCharacteristic transfer = AVCOL_TRC_UNSPECIFIED;
};

// The audio of a clip on its way past the processing: the reader of the clip puts the packets in as
// it meets them, the writer takes them out. Both run on the thread of one session.
struct AudioTracks {
    struct Track {
        AvPtr<AVCodecParameters> parameters;
        AVRational timeBase;
    };
    struct Packet {
        size_t track;
        AvPtr<AVPacket> data;  // its times count from the start of the clip
    };

    std::vector<Track> tracks;
    std::deque<Packet> packets;
};

// A clip in a file or pipe, or the built-in scene.
class FrameSource {
  public:
    virtual ~FrameSource() = default;

    const ClipInfo& info() const { return mInfo; }

    // Writes the next frame as RGBA bytes into rows of `stride` bytes. Gives its presentation time,
    // nanoseconds from the start of the clip, later than that of the frame before; none at the end.
    // Throws BadInput when the clip is damaged.
    virtual std::optional<int64_t> next(uint8_t* rgba, size_t stride) = 0;

    virtual AudioTracks* audio() { return nullptr; }

  protected:
    ClipInfo mInfo;
};

struct FinishedFrame {
    uint64_t timestamp;  // microseconds
    bool source;         // a source frame itself, not an interpolated one
    Nv12View picture;    // limited range
    AVColorSpace matrix = AVCOL_SPC_SMPTE170M;
};

class FrameSink {
  public:
    virtual ~FrameSink() = default;

    // Uses the picture within the call. False: no more frames are wanted. Throws SessionFailed.
    virtual bool take(const FinishedFrame& frame) = 0;
};

}  // namespace qozplay
