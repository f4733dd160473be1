// SPDX-License-Identifier: Apache-2.0
// Pictures of buffers, written as PNG for a developer to look at.
#pragma once

#include <host/converter/MappedBuffer.h>

#include <cstdint>
#include <string>

namespace qoz::host {

struct DumpResult {
    std::string path;
    std::string error;  // empty: written
};

// Writes <frame, 5 digits>_<name>.png into the folder that the property debug.qoz.dump.dir names,
// "." when it is unset; makes the folder. Where debug.qoz.dump.frames names a first and a last
// frame
// ("30-31"), no other frame is written. "FW_MV" and "BW_MV" are drawn as vector fields: a 16x16
// cell for each vector, hue for its direction, brightness for its length, and an arrow. Any other
// name shows the pixels.
DumpResult dump(const MappedBuffer& buffer, const std::string& name, uint32_t frame);

}  // namespace qoz::host
