// SPDX-License-Identifier: Apache-2.0
#include "stream/VppUtils.h"

#include <android/log.h>

#include <algorithm>
#include <array>

#include "base/Log.h"

namespace android {
namespace {

// One pixel format and its code in each numbering.
struct FormatRow {
    uint32_t format;
    int32_t color;       // the VPP's colour code
    uint32_t yuvFormat;  // pixel format on the VPP input port
    bool rgb;
    int32_t portColor;  // colour-format code of a port
};

constexpr int32_t kDefaultPortColor = 8;  // also used for a format that is not in the table

constexpr std::array<FormatRow, 5> kFormats{{
    {QOZFormat::kRgba8888, 2, QOZFormat::kNv12Vemo, true, kDefaultPortColor},
    {QOZFormat::kRgbx8888, 3, QOZFormat::kNv12Vemo, true, kDefaultPortColor},
    {QOZFormat::kVendorRgb, 4, QOZFormat::kNv12Vemo, true, kDefaultPortColor},
    {QOZFormat::kVendorYuv, 0, QOZFormat::kVendorYuv, false, 0},
    {QOZFormat::kNv12Vemo, 1, QOZFormat::kNv12Vemo, false, 3},
}};

// Returns null for a format that is not in the table.
const FormatRow* findRow(uint32_t format) {
    const auto* row = std::find_if(kFormats.begin(), kFormats.end(),
                                   [format](const FormatRow& r) { return r.format == format; });
    return row == kFormats.end() ? nullptr : row;
}

// Like findRow(), but logs an error for a format that is not in the table.
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

bool VppUtils::areAlike(uint32_t format, uint32_t other) {
    if (format == other) return true;
    const FormatRow* row = findRow(format);
    const FormatRow* otherRow = findRow(other);
    return row != nullptr && row->rgb && otherRow != nullptr && otherRow->rgb;
}

// Always logs the answer, because a client asks once per stream and expects it in its log.
bool VppUtils::isConvertible(uint32_t format, uint32_t& yuvFormat) {
    const FormatRow* row = findRow(format);
    const bool rgb = row != nullptr && row->rgb;
    const bool vemo = format == QOZFormat::kNv12Vemo;
    yuvFormat = row == nullptr ? format : row->yuvFormat;
    if (rgb || vemo) {
        __android_log_print(ANDROID_LOG_INFO, VPP_LOG_TAG, "GetFormat: format 0x%x is supported",
                            format);
    } else {
        __android_log_print(ANDROID_LOG_WARN, VPP_LOG_TAG,
                            "GetFormat: format 0x%x is not supported", format);
    }
    if (vemo) {
        __android_log_print(ANDROID_LOG_WARN, VPP_LOG_TAG,
                            "GetFormat:  input format is NV12 VEMO, need to go bypass mode");
    }
    return rgb;
}

}  // namespace android
