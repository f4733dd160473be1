// SPDX-License-Identifier: Apache-2.0
// The pixel formats that the system knows. Private to src/.
#pragma once

#include <qoz/ClientTypes.h>

#include <cstdint>

namespace android {

// Pure functions over one table of formats; any thread.
class VppUtils {
  public:
    // The VPP's colour code; -1, with an error message, for a format that is not supported.
    static int32_t GetSupportedColor(uint32_t format);

    // What the VPP input port carries for sources of this format; the format itself, with an error
    // message, when it is not supported.
    static uint32_t GetYUVFormat(uint32_t format);

    // False, with an error message, for a format that is not supported.
    static bool IsRGBFmt(uint32_t format);

    // Whether a converter sees the same kind of pixels in both. Without a message.
    static bool areAlike(uint32_t format, uint32_t other);

    // The colour-format code of a VPP port that carries this format.
    static int32_t portColorFormat(uint32_t format);

    // Whether the component takes sources of this format for conversion, and what the input port
    // then carries. Says so in the log, whatever the gate.
    static bool isConvertible(uint32_t format, uint32_t& yuvFormat);
};

}  // namespace android
