// SPDX-License-Identifier: Apache-2.0
// The audio of a clip on its way past the processing: the reader of the clip puts the packets in as
// it meets them, the writer takes them out. Both run on the thread of one session.
#pragma once

#include <deque>
#include <vector>

#include "qozplay/media/Av.h"

namespace qozplay {

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

}  // namespace qozplay
