// SPDX-License-Identifier: Apache-2.0
// One frame with its motion field laid over it. A client does not see the vectors; the component
// dumps them as pictures, those of two frames of the running session.
#pragma once

#include <filesystem>
#include <string>

#include "qozplay/media/Canvas.h"

namespace qozplay {

// Draws `frame` from what was dumped of it and of the one after it into `folder`. Throws
// SessionFailed when there are no vectors from the one to the other.
Image drawVectors(const std::filesystem::path& folder, uint64_t frame);

}  // namespace qozplay
