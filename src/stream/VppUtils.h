// The pixel formats that the system knows. Private to src/.
#pragma once

#include <cstdint>

namespace android {

// Pixel-format numbers of the platform, vendor formats included.
constexpr uint32_t kRgba8888 = 1;
constexpr uint32_t kRgbx8888 = 2;
constexpr uint32_t kVendorRgb = 277;
constexpr uint32_t kVendorYuv = 0x7FA30C04;
constexpr uint32_t kNv12Vemo = 0x7FA30C06;  // compressed NV12: what the VPP input port is given

class VppUtils {
  public:
    // The VPP's colour code; -1, with an error message, for a format that is not supported.
    static int32_t GetSupportedColor(uint32_t format);

    // What the VPP input port carries for sources of this format; the format itself, with an error
    // message, when it is not supported.
    static uint32_t GetYUVFormat(uint32_t format);

    // False, with an error message, for a format that is not supported.
    static bool IsRGBFmt(uint32_t format);

    // The colour-format code of a VPP port that carries this format.
    static int32_t portColorFormat(uint32_t format);
};

}  // namespace android
