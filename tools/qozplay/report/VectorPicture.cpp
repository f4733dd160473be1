// SPDX-License-Identifier: Apache-2.0
#include "qozplay/report/VectorPicture.h"

#include <optional>

namespace qozplay {
namespace {

constexpr int32_t kTitleDot = 2;
constexpr int32_t kTitleRoom = 34;

// The field is drawn in cells of one colour with an arrow of pure white and yellow in the middle;
// grey cells are at rest. The frame shows through without colours of its own.
void layOver(const Surface& frame, const Image& field) {
    constexpr uint8_t kTint = 150;  // of 255
    for (uint32_t y = 0; y < frame.size.height; ++y) {
        for (uint32_t x = 0; x < frame.size.width; ++x) {
            uint8_t* pixel = frame.at(x, y);
            const auto grey =
                static_cast<uint8_t>((pixel[0] * 77 + pixel[1] * 150 + pixel[2] * 29) / 256);
            const uint8_t* over = field.pixels.data() + field.stride() * y + size_t{4} * x;
            const bool arrow = over[0] == 255 && over[1] == 255;
            const bool rest = over[0] == over[1] && over[1] == over[2];
            const Box dot{static_cast<int32_t>(x), static_cast<int32_t>(y), 1, 1};
            fill(frame, dot, {grey, grey, grey});
            if (arrow || !rest) {
                fill(frame, dot, {over[0], over[1], over[2], arrow ? uint8_t{255} : kTint});
            }
        }
    }
}

// As the component numbers and names what it dumps.
std::optional<Image> dumped(const std::filesystem::path& folder, uint64_t frame, const char* name) {
    return readPng(folder / format("%05llu_%s.png", big(frame), name));
}

}  // namespace

// The field from a frame to the next is dumped with the next.
Image drawVectors(const std::filesystem::path& folder, uint64_t frame) {
    std::optional<Image> picture = dumped(folder, frame, "Game_Source");
    const std::optional<Image> field = dumped(folder, frame + 1, "FW_MV");
    if (!picture || !field || field->size.width < picture->size.width ||
        field->size.height < picture->size.height) {
        throw SessionFailed(
            format("--vectors: there are none from frame %llu to the next", big(frame)));
    }
    layOver(picture->surface(), *field);
    Image page({picture->size.width, picture->size.height + kTitleRoom});
    fill(page.surface(), {0, 0, static_cast<int32_t>(page.size.width), kTitleRoom}, kGround);
    drawText(page.surface(), kTitleRoom / 2, (kTitleRoom - textHeight(kTitleDot)) / 2, kTitleDot,
             format("FRAME %llu > %llu:  HUE IS DIRECTION, BRIGHTNESS LENGTH, GREY AT REST",
                    big(frame), big(frame + 1)),
             kInk);
    paste(page.surface(), 0, kTitleRoom, *picture);
    return page;
}

}  // namespace qozplay
