#include "stream/VppUtils.h"

#include <android/log.h>
#include <qoz/VppComponent.h>

#include <algorithm>
#include <array>

#include "session/Log.h"

namespace android {
namespace {

struct FormatRow {
    uint32_t format;
    int32_t color;       // the VPP's colour code
    uint32_t yuvFormat;  // on the VPP input port
    bool rgb;
    int32_t portColor;  // colour-format code of a port
};

constexpr int32_t kDefaultPortColor = 8;

constexpr std::array<FormatRow, 5> kFormats{{
    {kRgba8888, 2, kNv12Vemo, true, kDefaultPortColor},
    {kRgbx8888, 3, kNv12Vemo, true, kDefaultPortColor},
    {kVendorRgb, 4, kNv12Vemo, true, kDefaultPortColor},
    {kVendorYuv, 0, kVendorYuv, false, 0},
    {kNv12Vemo, 1, kNv12Vemo, false, 3},
}};

const FormatRow* findRow(uint32_t format) {
    const auto* row = std::find_if(kFormats.begin(), kFormats.end(),
                                   [format](const FormatRow& r) { return r.format == format; });
    return row == kFormats.end() ? nullptr : row;
}

const FormatRow* findSupported(uint32_t format) {
    const FormatRow* row = findRow(format);
    if (row == nullptr) __android_log_print(ANDROID_LOG_ERROR, "VppUtils", "no supported color");
    return row;
}

}  // namespace

int32_t VppUtils::GetSupportedColor(uint32_t format) {
    const FormatRow* row = findSupported(format);
    return row == nullptr ? -1 : row->color;
}

uint32_t VppUtils::GetYUVFormat(uint32_t format) {
    const FormatRow* row = findSupported(format);
    return row == nullptr ? format : row->yuvFormat;
}

bool VppUtils::IsRGBFmt(uint32_t format) {
    const FormatRow* row = findSupported(format);
    return row != nullptr && row->rgb;
}

int32_t VppUtils::portColorFormat(uint32_t format) {
    const FormatRow* row = findRow(format);
    return row == nullptr ? kDefaultPortColor : row->portColor;
}

// Always printed: a client asks once a stream, and wants the answer in its log.
int VppComponent::GetFormat(int format, int& yuvFormat) {
    const auto say = [format](int priority, const char* text) {
        __android_log_print(priority, VPP_LOG_TAG, "%s: format 0x%x is %s", "GetFormat",
                            static_cast<unsigned>(format), text);
    };
    const FormatRow* row = findRow(static_cast<uint32_t>(format));
    const bool rgb = row != nullptr && row->rgb;
    const bool vemo = row != nullptr && row->format == kNv12Vemo;
    yuvFormat = row == nullptr ? format : static_cast<int>(row->yuvFormat);
    if (rgb || vemo) {
        say(ANDROID_LOG_INFO, "supported");
    } else {
        say(ANDROID_LOG_WARN, "not supported");
    }
    if (vemo) {
        __android_log_print(ANDROID_LOG_WARN, VPP_LOG_TAG,
                            "%s:  input format is NV12 VEMO, need to go bypass mode", "GetFormat");
    }
    return rgb ? 0 : 3;
}

}  // namespace android
