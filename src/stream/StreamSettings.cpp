// SPDX-License-Identifier: Apache-2.0
#include "stream/StreamSettings.h"

#include <cutils/properties.h>

#include <algorithm>
#include <array>

namespace android {
namespace {

constexpr uint32_t kMaxInterpFactor = 3;  // four times the frame rate

// The factor as config() takes it: what the VPP cannot do becomes twice the frame rate.
uint32_t clampedFactor(uint32_t interpFactor) {
    return interpFactor <= kMaxInterpFactor ? interpFactor : 1;
}

// Whether frame-rate conversion comes with upscaling. A ratio of 1x is none.
bool isUpscaled(const ConfigParams& params) {
    return params.mode == QOZMode::kFrc &&
           (params.upscaleIndex == QOZUpscale::k1_5x || params.upscaleIndex == QOZUpscale::k2x);
}

// One upscale ratio that settings on a frame may ask for. A code that is not in the table changes
// neither ratio nor half-size copies.
struct UpscaleRow {
    uint32_t index;
    float ratio;
    bool downscaledCopies;  // wanted beside the frame
    const char* inBandMessage;
};

constexpr std::array<UpscaleRow, 3> kUpscales{{
    {QOZUpscale::k1x, 1.0F, true, "Enable DS buffer for G-FRC+ AIS 1x"},
    {QOZUpscale::k1_5x, 1.5F, true, "Enable DS buffer for G-FRC+ AIS 1.5x"},
    {QOZUpscale::k2x, 2.0F, false, "Disable DS buffer for G-FRC+ AIS 2x"},
}};

// Null for a code that is not in the table.
const UpscaleRow* findUpscale(uint32_t index) {
    const auto* row = std::find_if(kUpscales.begin(), kUpscales.end(),
                                   [index](const UpscaleRow& r) { return r.index == index; });
    return row == kUpscales.end() ? nullptr : row;
}

// Rounded up to a multiple of two.
uint32_t even(uint32_t value) {
    return (value + 1) & ~1U;
}

// The product in single precision, with the fraction dropped. What does not fit into 32 bits
// becomes the largest number: no service takes a port of that size, and nothing wraps.
uint32_t truncatedProduct(float ratio, uint32_t value) {
    const float product = ratio * static_cast<float>(value);
    return product < 0x1p32F ? static_cast<uint32_t>(product) : UINT32_MAX;
}

}  // namespace

// What the VPP asks for: the frame and those interpolated after it, and one buffer more unless the
// session also upscales. Without interpolation it is the frame alone.
uint32_t StreamSettings::outBufReqs(const ConfigParams& params) {
    const uint32_t factor = clampedFactor(params.interpFactor);
    if (factor == 0) return 1;
    return factor + 2 - (isUpscaled(params) ? 1 : 0);
}

uint32_t StreamSettings::adoptOutBufReqs(const ConfigParams& params) {
    m.aisEnabled = isUpscaled(params);
    return outBufReqs(params);
}

// Side buffers are on unless the device's property turns them off, and each mode then does without
// those that it has no use for: no half-size copy where the output is twice the source, no motion
// vectors without interpolation.
void StreamSettings::adoptAll(const ConfigParams& params) {
    m.mvEnabled = m.dsEnabled = property_get_bool("debug.vpp.frc.game.ext.mbi", 1) != 0;
    m.outBufReqsPerFrame = adoptOutBufReqs(params);
    m.interpFactor = clampedFactor(params.interpFactor);
    m.doubleOutput = params.mode == QOZMode::kDoubleSize;
    if (m.doubleOutput) m.mvEnabled = m.dsEnabled = false;
    VPP_LOGI("config qoz needs %u output buffers per frame", m.outBufReqsPerFrame);
    if (params.mode != QOZMode::kFrc) return;

    m.upscaleIndex = params.upscaleIndex;
    // 1x leaves the ratio as it is, and the half-size copies as the property has them.
    if (isUpscaled(params)) m.upscaleRatio = findUpscale(params.upscaleIndex)->ratio;
    if (params.upscaleIndex == QOZUpscale::k2x) {
        m.dsEnabled = false;
        VPP_LOGI("Disable DS buffer for G-FRC+ AIS 2x");
    } else if (params.upscaleIndex == QOZUpscale::k1_5x) {
        VPP_LOGI("Enable both DS and MV buffers for G-FRC+ AIS 1.5x");
    }
    if (m.interpFactor == 0) {
        VPP_LOGI("Disable MV buffer for FRC 1x");
        m.mvEnabled = false;
    }
}

// Compares with what is stored, not with what the service was told last: settings that were stored
// and refused are not tried again by the next frame that carries them.
StreamSettings::Changes StreamSettings::changesBy(const ConfigParams& params) const {
    Changes changes;
    changes.outBufReqs = outBufReqs(params) != m.outBufReqsPerFrame;
    changes.interpolation = params.interpFactor != m.interpFactor;
    changes.upscale = params.upscaleIndex != m.upscaleIndex;
    return changes;
}

// The settings are stored here; the caller tells the service and reshapes the session. The factor
// is taken as it is, without the limit that config() has.
void StreamSettings::adoptInBand(const ConfigParams& params, const Changes& changes) {
    const uint32_t outBufReqs = adoptOutBufReqs(params);
    if (changes.outBufReqs) {
        VPP_LOGI("processBuffer: buffer requirement updates from %u to %u", m.outBufReqsPerFrame,
                 outBufReqs);
        m.outBufReqsPerFrame = outBufReqs;
    }
    VPP_LOGI("processBuffer: Receive dynamic config settings for G-FRC+");
    if (changes.interpolation) {
        VPP_LOGI("processBuffer: G-FRC+ interp factor changes");
        m.interpFactor = params.interpFactor;
        m.mvEnabled = m.interpFactor != 0;
        if (m.mvEnabled) {
            VPP_LOGI("Enable MV buffer for FRC %ux", m.interpFactor + 1);
        } else {
            VPP_LOGI("Disable MV buffer for FRC 1x");
        }
    }
    if (changes.upscale) {
        VPP_LOGI("processBuffer: G-FRC+ upscale ratio changes");
        adoptUpscaleInBand(params.upscaleIndex);
    }
}

// The code is stored even if it is not in the table, so that the next frame with the same code
// changes nothing.
void StreamSettings::adoptUpscaleInBand(uint32_t upscaleIndex) {
    m.upscaleIndex = upscaleIndex;
    const UpscaleRow* row = findUpscale(upscaleIndex);
    if (row == nullptr) return;
    m.upscaleRatio = row->ratio;
    m.dsEnabled = row->downscaledCopies;
    VPP_LOGI("%s", row->inBandMessage);
}

// At 1.5x and 2x the side is made even before and after, so that half-size planes are whole. At 1x
// the side of an odd source stays odd.
uint32_t StreamSettings::scaledSide(uint32_t side) const {
    if (m.doubleOutput) return 2 * side;
    if (m.upscaleIndex == QOZUpscale::k1_5x || m.upscaleIndex == QOZUpscale::k2x) {
        return even(truncatedProduct(m.upscaleRatio, even(side)));
    }
    return truncatedProduct(m.upscaleRatio, side);
}

void StreamSettings::publish() {
    mFacts.update([this](StreamFacts& facts) {
        facts.outBufReqsPerFrame = m.outBufReqsPerFrame;
        facts.interpFactor = m.interpFactor;
        facts.motionVectors = m.mvEnabled;
        facts.downscaledCopies = m.dsEnabled;
    });
}

}  // namespace android
