// SPDX-License-Identifier: Apache-2.0
// Where frames come from: a clip in a file or pipe, or the built-in scene. Each session has one of
// its own, and reads it on its own thread.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "qozplay/media/Colour.h"

namespace qozplay {

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

class FrameSource {
  public:
    virtual ~FrameSource() = default;

    virtual Size size() const = 0;
    virtual Rate rate() const = 0;                       // on average, when it varies
    virtual std::optional<uint64_t> length() const = 0;  // in frames; a pipe does not know

    // Writes the next frame as RGBA bytes into rows of `stride` bytes. False at the end. Throws
    // BadInput when the clip is damaged.
    virtual bool next(uint8_t* rgba, size_t stride) = 0;

    // Presentation time of the frame that next() gave last, the one of this number; nanoseconds
    // from the start of the clip, later than that of the frame before.
    virtual int64_t timeOf(uint64_t frame) const { return timestampOf(rate(), frame); }

    virtual AVRational sampleAspect() const { return {1, 1}; }
    virtual ColourTags colourTags() const { return {}; }
    virtual AudioTracks* audio() { return nullptr; }
};

}  // namespace qozplay
