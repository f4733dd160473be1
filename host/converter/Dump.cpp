// SPDX-License-Identifier: Apache-2.0
#include <cutils/properties.h>
#include <host/converter/Dump.h>
#include <host/converter/FieldDrawing.h>
#include <host/converter/FrameConverter.h>
#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>
#include <png.h>

#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

namespace qoz::host {
namespace {

struct Picture {
    uint32_t width;
    uint32_t height;
    std::vector<uint8_t> rgb;  // bytes R, G, B, rows without padding
};

// Draws a motion field.
Picture drawn(const MappedBuffer& vectors) {
    const auto* field = reinterpret_cast<const MotionVector*>(vectors.pixels());
    const auto columns = static_cast<uint32_t>(size_t{vectors.width()} * 4 / sizeof(MotionVector));
    return {columns * kMotionBlock, vectors.height() * kMotionBlock,
            drawField(field, columns, vectors.height())};
}

// Converts the pixels to RGB. Alpha is dropped: a frame that was rendered with zero alpha would be
// invisible.
Picture pixelsOf(const MappedBuffer& buffer) {
    const int width = static_cast<int>(buffer.width());
    const int height = static_cast<int>(buffer.height());
    Picture picture{buffer.width(), buffer.height(), {}};
    picture.rgb.resize(size_t{picture.width} * picture.height * 3);
    if (buffer.nv12()) {
        const Nv12Picture from = buffer.picture();
        // libyuv names its formats by the reverse order of bytes. To get the bytes R, G, B, U and V
        // change places.
        const auto& colours = isHighDefinition(buffer.height()) ? libyuv::kYvuH709Constants
                                                                : libyuv::kYvuI601Constants;
        libyuv::NV21ToRGB24Matrix(from.luma, from.stride, from.chroma, from.stride,
                                  picture.rgb.data(), width * 3, &colours, width, height);
    } else {
        libyuv::ABGRToRAW(buffer.pixels(), width * 4, picture.rgb.data(), width * 3, width, height);
    }
    return picture;
}

std::string writePng(const std::string& path, const Picture& picture) {
    png_image header{};
    header.version = PNG_IMAGE_VERSION;
    header.width = picture.width;
    header.height = picture.height;
    header.format = PNG_FORMAT_RGB;
    header.flags = PNG_IMAGE_FLAG_FAST;  // a higher frame rate is worth larger files
    const bool written =
        png_image_write_to_file(&header, path.c_str(), 0, picture.rgb.data(), 0, nullptr) != 0;
    std::string error = written ? "" : header.message;
    png_image_free(&header);
    return error;
}

std::filesystem::path folder() {
    char value[PROPERTY_VALUE_MAX];
    property_get("debug.qoz.dump.dir", value, ".");
    return value;
}

// Returns whether the property selects this frame; if it is unset, it selects all.
bool isWanted(uint32_t frame) {
    char value[PROPERTY_VALUE_MAX];
    unsigned first = 0;
    unsigned last = 0;
    property_get("debug.qoz.dump.frames", value, "");
    return std::sscanf(value, "%u-%u", &first, &last) != 2 || (first <= frame && frame <= last);
}

std::string fileName(const std::string& name, uint32_t frame) {
    char number[16];
    std::snprintf(number, sizeof(number), "%05u", frame);
    return std::string(number) + "_" + name + ".png";
}

}  // namespace

DumpResult dump(const MappedBuffer& buffer, const std::string& name, uint32_t frame) {
    const std::filesystem::path where = folder();
    DumpResult result{(where / fileName(name, frame)).string(), ""};
    if (!isWanted(frame)) return result;
    std::error_code failure;
    std::filesystem::create_directories(where, failure);
    if (failure) {
        result.error = failure.message();
        return result;
    }
    const bool vectors = !buffer.nv12() && (name == "FW_MV" || name == "BW_MV");
    result.error = writePng(result.path, vectors ? drawn(buffer) : pixelsOf(buffer));
    return result;
}

}  // namespace qoz::host
