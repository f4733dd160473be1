// The first line of a y4m stream.
#pragma once

#include "qozplay/media/Types.h"

namespace qozplay {

struct Y4mHeader {
    Size size;
    Rate rate;                   // 30 when the header leaves it open
    std::string aspect = "1:1";  // of a pixel, as the header has it
    bool fullRange = false;      // luma from 0 to 255 in place of 16 to 235
};

// `line` without its line feed. Throws BadInput that begins with `name`.
Y4mHeader parseY4mHeader(const std::string& line, const std::string& name);

std::string toLine(const Y4mHeader& header);  // with its line feed

// Bytes of one planar 4:2:0 picture; chroma planes cover an odd last row or column.
size_t i420Bytes(Size size);

}  // namespace qozplay
