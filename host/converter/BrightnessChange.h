// SPDX-License-Identifier: Apache-2.0
// A uniform change of brightness between two frames, such as a fade. It has to be told from motion.
#pragma once

#include <host/converter/LumaPyramid.h>

namespace qoz::host {

// Luma v of the older frame becomes v + v * gain / kGainUnit + offset in the newer frame. The
// conversion to bool is true if there is a change.
struct BrightnessChange {
    int gain = 0;
    int offset = 0;

    explicit operator bool() const { return gain != 0 || offset != 0; }
};

// Measures the change of brightness between two reduced frames. It compares the distributions of
// luma over the whole frames, which motion does not affect. Returns no change if the frames are
// about equally bright, if no gain and offset map one distribution to the other, or if the parts of
// the picture contradict the result.
BrightnessChange brightnessChange(const LumaPlane& older, const LumaPlane& newer);

}  // namespace qoz::host
