// SPDX-License-Identifier: Apache-2.0
// The supported pixel formats. Private to src/.
#pragma once

#include <qoz/ClientTypes.h>

#include <cstdint>

namespace android {

// Pure functions that look up a constant table of formats. They may be called from any thread.
class VppUtils {
  public:
    // Returns the VPP's colour code. Logs an error and returns -1 if the format is not supported.
    static int32_t GetSupportedColor(uint32_t format);

    // Returns the format on the VPP input port for sources of this format. Logs an error and
    // returns `format` if it is not supported.
    static uint32_t GetYUVFormat(uint32_t format);

    // Returns true for an RGB format. Logs an error and returns false if it is not supported.
    static bool IsRGBFmt(uint32_t format);

    // Returns true if the formats are equal or both RGB. Logs nothing.
    static bool areAlike(uint32_t format, uint32_t other);

    // Returns the colour-format code of a VPP port that carries this format.
    static int32_t portColorFormat(uint32_t format);

    // Returns true if the component converts sources of this format. Sets `yuvFormat` to the format
    // on the input port. Logs the answer even if diagnostics are off.
    static bool isConvertible(uint32_t format, uint32_t& yuvFormat);
};

}  // namespace android
