// SPDX-License-Identifier: Apache-2.0
// A change of brightness between two frames: a fade, which is no motion.
#pragma once

#include <host/converter/LumaPyramid.h>

namespace qoz::host {

// Luma v of the older frame is v + v * gain / kGainUnit + offset in the newer.
struct BrightnessChange {
    int gain = 0;
    int offset = 0;

    explicit operator bool() const { return gain != 0 || offset != 0; }
};

// Compares how many pixels of each brightness there are, wherever they are, so that motion does not
// matter. Nothing when the frames are about as bright, or when no gain and offset turn one
// distribution into the other.
BrightnessChange brightnessChange(const LumaPlane& older, const LumaPlane& newer);

}  // namespace qoz::host
