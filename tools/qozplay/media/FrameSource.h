// Where frames come from: a clip in a file or pipe, or the built-in scene.
#pragma once

#include "qozplay/media/Types.h"

#include <cstddef>
#include <memory>
#include <optional>

namespace qozplay {

class FrameSource {
  public:
    virtual ~FrameSource() = default;

    virtual Size size() const = 0;
    virtual Rate rate() const = 0;
    virtual std::optional<uint64_t> length() const = 0;  // in frames; a pipe does not know

    // Writes the next frame as RGBA bytes into rows of `stride` bytes. False at the end. Throws
    // BadInput when the clip is damaged.
    virtual bool next(uint8_t* rgba, size_t stride) = 0;
};

// Both throw BadInput. "-" is standard input.
std::unique_ptr<FrameSource> openY4m(const std::string& path);
std::unique_ptr<FrameSource> openRaw(const std::string& path, Size size, Rate rate);

}  // namespace qozplay
