// SPDX-License-Identifier: Apache-2.0
#include <host/converter/FieldDrawing.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <utility>

namespace qoz::host {
namespace {

using Colour = std::array<uint8_t, 3>;

constexpr int kCell = static_cast<int>(kMotionBlock);

// The displacement in pixels that is drawn at full brightness. Brightness grows with the square
// root of the length, so that short vectors are visible.
constexpr float kBrightLength = 64.0F;
constexpr float kDarkest = 0.15F;  // brightness of a block at rest

constexpr float kHalfArrow = 6.0F;  // half the longest arrow, in pixels; it stays in its cell

float channel(float hue, float brightness, float offset) {
    const float wave = std::cos(hue - offset) * 0.5F + 0.5F;
    return brightness * (0.25F + 0.75F * wave);
}

// The colour of a vector. A vector to the right is red; turning clockwise leads to green and then
// to blue.
Colour colourOf(const MotionVector& vector) {
    const float dx = static_cast<float>(vector.dx) / kMotionUnit;
    const float dy = static_cast<float>(vector.dy) / kMotionUnit;
    const float length = std::hypot(dx, dy);
    const float strength = std::min(1.0F, std::sqrt(length / kBrightLength));
    const auto grey = static_cast<uint8_t>(255 * kDarkest);
    if (length == 0) return {grey, grey, grey};

    const float brightness = kDarkest + (1 - kDarkest) * strength;
    const float hue = std::atan2(dy, dx);
    constexpr float kThird = 2 * std::numbers::pi_v<float> / 3;
    Colour colour;
    for (size_t i = 0; i < colour.size(); ++i) {
        const float offset = kThird * static_cast<float>(i);
        colour[i] = static_cast<uint8_t>(255 * channel(hue, brightness, offset));
    }
    return colour;
}

// The pixels of the picture while it is drawn.
class Canvas {
  public:
    Canvas(uint32_t columns, uint32_t rows)
        : mStride(static_cast<size_t>(columns) * kCell * 3), mPixels(mStride * rows * kCell) {}

    void set(int x, int y, Colour colour) {
        std::copy(colour.begin(), colour.end(),
                  mPixels.begin() + static_cast<ptrdiff_t>(mStride) * y + ptrdiff_t{3} * x);
    }

    std::vector<uint8_t> take() { return std::move(mPixels); }

  private:
    size_t mStride;
    std::vector<uint8_t> mPixels;
};

// Fills the cell of a vector with its colour.
void drawCell(int left, int top, Colour colour, Canvas* canvas) {
    for (int y = 0; y < kCell; ++y) {
        for (int x = 0; x < kCell; ++x)
            canvas->set(left + x, top + y, colour);
    }
}

// Draws a white line with a yellow head through the middle of the cell, in the direction of the
// vector.
void drawArrow(int left, int top, const MotionVector& vector, Canvas* canvas) {
    constexpr Colour kLine{255, 255, 255};
    constexpr Colour kHead{255, 255, 0};
    const float dx = static_cast<float>(vector.dx) / kMotionUnit;
    const float dy = static_cast<float>(vector.dy) / kMotionUnit;
    const float length = std::hypot(dx, dy);
    if (length == 0) return;
    const float half = kHalfArrow * std::min(1.0F, 0.25F + length / kBrightLength);
    const float stepX = dx / length;
    const float stepY = dy / length;
    for (float along = -half; along <= half; along += 0.5F) {
        const int x = left + kCell / 2 + static_cast<int>(std::lround(stepX * along));
        const int y = top + kCell / 2 + static_cast<int>(std::lround(stepY * along));
        canvas->set(x, y, along > half - 2 ? kHead : kLine);
    }
}

}  // namespace

std::vector<uint8_t> drawField(const MotionVector* field, uint32_t columns, uint32_t rows) {
    Canvas canvas(columns, rows);
    for (uint32_t row = 0; row < rows; ++row) {
        for (uint32_t column = 0; column < columns; ++column, ++field) {
            const int left = static_cast<int>(column) * kCell;
            const int top = static_cast<int>(row) * kCell;
            drawCell(left, top, colourOf(*field), &canvas);
            drawArrow(left, top, *field, &canvas);
        }
    }
    return canvas.take();
}

}  // namespace qoz::host
