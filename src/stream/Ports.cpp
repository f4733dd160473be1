// SPDX-License-Identifier: Apache-2.0
#include "stream/Ports.h"

#include <algorithm>

#include "stream/VppUtils.h"

namespace android {

void Ports::setSource(uint32_t width, uint32_t height, uint32_t format) {
    m.width = width;
    m.height = height;
    m.format = format;
}

bool Ports::isSource(uint32_t width, uint32_t height, uint32_t format) const {
    return isSourceSize(width, height) && m.format == format;
}

bool Ports::isSourceSize(uint32_t width, uint32_t height) const {
    return m.width == width && m.height == height;
}

bool Ports::isOutputSize(uint32_t width, uint32_t height) const {
    return m.expectedOutWidth == width && m.expectedOutHeight == height;
}

// The input port has the size of the source. For a source that exceeds the device's limits it has
// the size of the limits instead, and the converter scales the source to that size regardless of
// its aspect ratio. The output port is derived from the input port and the settings.
Ports::Sizes Ports::sizesForSource() const {
    Sizes sizes{};
    sizes.downscale = m.needDownscale(m.width, m.height, m.maxWidth, m.maxHeight);
    sizes.inWidth = m.width;
    sizes.inHeight = m.height;
    if (sizes.downscale) {
        // The limits are oriented like the source. A square source gets the shorter limit twice.
        const uint32_t longSide = std::max(m.maxWidth, m.maxHeight);
        const uint32_t shortSide = std::min(m.maxWidth, m.maxHeight);
        sizes.inWidth = m.width > m.height ? longSide : shortSide;
        sizes.inHeight = m.width < m.height ? longSide : shortSide;
    }
    sizes.outWidth = mSettings.scaledSide(sizes.inWidth);
    sizes.outHeight = mSettings.scaledSide(sizes.inHeight);
    return sizes;
}

void Ports::resolve() {
    const Sizes sizes = sizesForSource();
    m.needDownscaleResult = sizes.downscale;
    m.inPortWidth = sizes.inWidth;
    m.inPortHeight = sizes.inHeight;
    m.expectedOutWidth = sizes.outWidth;
    m.expectedOutHeight = sizes.outHeight;
    publish();
}

// config() returns before the worker runs the start that resolves the ports. Until then the members
// describe the running session, so only the published copy is updated here.
void Ports::announce() {
    publish(sizesForSource());
}

void Ports::publish() {
    publish({m.needDownscaleResult, m.inPortWidth, m.inPortHeight, m.expectedOutWidth,
             m.expectedOutHeight});
}

void Ports::publish(const Sizes& sizes) {
    mFacts.update([&](StreamFacts& facts) {
        facts.format = m.format;
        facts.inputWidth = sizes.inWidth;
        facts.inputHeight = sizes.inHeight;
        facts.outputWidth = sizes.outWidth;
        facts.outputHeight = sizes.outHeight;
    });
}

void Ports::fill(PortParam* port, uint32_t width, uint32_t height, int32_t colorFormat) {
    port->height = static_cast<int32_t>(height);
    port->width = static_cast<int32_t>(width);
    port->stride = port->width;
    port->scanlines = port->height;
    port->colorFormat = colorFormat;
}

void Ports::create(PortParam* port, uint32_t width, uint32_t height, uint32_t format) const {
    fill(port, width, height, VppUtils::portColorFormat(format));
    VPP_LOGI("vpp reconfigure with port resolution: %ux%u", width, height);
}

}  // namespace android
