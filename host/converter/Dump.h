// SPDX-License-Identifier: Apache-2.0
// Frame dumps: buffers written as PNG pictures for a developer to look at.
#pragma once

#include <host/converter/MappedBuffer.h>

#include <cstdint>
#include <string>

namespace qoz::host {

struct DumpResult {
    std::string path;
    std::string error;  // empty if the picture was written
};

// Writes the buffer to <frame, 5 digits>_<name>.png. The property debug.qoz.dump.dir names the
// folder, "." if it is unset; the folder is created if necessary. The property
// debug.qoz.dump.frames may limit the frames to a first and a last one ("30-31"). Motion fields,
// named "FW_MV" and "BW_MV", are drawn with a 16x16 cell for each vector: the hue shows its
// direction, the brightness its length, and an arrow both. Buffers of other names are written as
// pixels.
DumpResult dump(const MappedBuffer& buffer, const std::string& name, uint32_t frame);

}  // namespace qoz::host
