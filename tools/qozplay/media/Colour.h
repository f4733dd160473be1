// SPDX-License-Identifier: Apache-2.0
// How the colours of a picture are coded.
#pragma once

#include "qozplay/media/Av.h"

namespace qozplay {

// The matrix that is taken for a clip of this size that names none.
inline AVColorSpace usualMatrix(Size size) {
    constexpr uint32_t kHighDefinition = 720;  // rows
    return size.height >= kHighDefinition ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
}

// The matrix that the converter applies to sources of this size; it writes limited range.
inline AVColorSpace converterMatrix(Size size) {
    return usualMatrix(size);
}

// What the processing leaves as it is, and the output says again.
struct ColourTags {
    AVColorPrimaries primaries = AVCOL_PRI_UNSPECIFIED;
    AVColorTransferCharacteristic transfer = AVCOL_TRC_UNSPECIFIED;
};

}  // namespace qozplay
