// SPDX-License-Identifier: Apache-2.0
#include "stream/StreamSettings.h"

#include <cutils/properties.h>

#include <algorithm>
#include <array>

namespace android {
namespace {

constexpr uint32_t kMaxInterpFactor = 3;  // four times the frame rate

// Returns the factor that config() stores. A factor that the VPP does not support becomes 1, twice
// the frame rate.
uint32_t clampedFactor(uint32_t interpFactor) {
    return interpFactor <= kMaxInterpFactor ? interpFactor : 1;
}

// Returns true if frame-rate conversion is combined with upscaling. A ratio of 1x is not upscaling.
bool isUpscaled(const ConfigParams& params) {
    return params.mode == QOZMode::kFrc &&
           (params.upscaleIndex == QOZUpscale::k1_5x || params.upscaleIndex == QOZUpscale::k2x);
}

// One upscale ratio that settings carried by a frame may select. A code that is not in the table
// changes neither the ratio nor the half-size copies.
struct UpscaleRow {
    uint32_t index;
    float ratio;
    bool downscaledCopies;  // whether half-size copies are made
    const char* inBandMessage;
};

constexpr std::array<UpscaleRow, 3> kUpscales{{
    {QOZUpscale::k1x, 1.0F, true, "Enable DS buffer for G-FRC+ AIS 1x"},
    {QOZUpscale::k1_5x, 1.5F, true, "Enable DS buffer for G-FRC+ AIS 1.5x"},
    {QOZUpscale::k2x, 2.0F, false, "Disable DS buffer for G-FRC+ AIS 2x"},
}};

// Returns null for a code that is not in the table.
const UpscaleRow* findUpscale(uint32_t index) {
    const auto* row = std::find_if(kUpscales.begin(), kUpscales.end(),
                                   [index](const UpscaleRow& r) { return r.index == index; });
    return row == kUpscales.end() ? nullptr : row;
}

// Results that do not fit in 32 bits must not wrap around to small sizes. They become the largest
// ones that fit, and no service accepts a port of such a size.

// Rounds up to a multiple of two.
uint32_t even(uint32_t value) {
    return (value < UINT32_MAX ? value + 1 : value) & ~1U;
}

uint32_t doubled(uint32_t value) {
    return value <= UINT32_MAX / 2 ? 2 * value : UINT32_MAX;
}

// Computes the product in single precision and drops the fraction.
uint32_t truncatedProduct(float ratio, uint32_t value) {
    const float product = ratio * static_cast<float>(value);
    return product < 0x1p32F ? static_cast<uint32_t>(product) : UINT32_MAX;
}

// The VPP requires one output buffer for the source frame, one for each interpolated frame, and one
// more unless the session also upscales. Without interpolation it requires one buffer.
uint32_t outBufReqs(const ConfigParams& params) {
    const uint32_t factor = clampedFactor(params.interpFactor);
    if (factor == 0) return 1;
    return factor + 2 - (isUpscaled(params) ? 1 : 0);
}

}  // namespace

// A client may ask on any thread while another thread adopts settings. (The compiler's builtin is
// used because some of the supported standard libraries lack std::atomic_ref.)
uint32_t StreamSettings::adoptOutBufReqs(const ConfigParams& params) {
    __atomic_store_n(&m.aisEnabled, isUpscaled(params), __ATOMIC_RELAXED);
    return outBufReqs(params);
}

// Side buffers are enabled unless the device's property disables them. kDoubleSize then disables
// both kinds, and kFrc disables half-size copies at 2x and motion vectors without interpolation.
void StreamSettings::adoptAll(const ConfigParams& params) {
    m.mvEnabled = m.dsEnabled = property_get_bool("debug.vpp.frc.game.ext.mbi", 1) != 0;
    m.outBufReqsPerFrame = adoptOutBufReqs(params);
    m.interpFactor = clampedFactor(params.interpFactor);
    m.doubleOutput = params.mode == QOZMode::kDoubleSize;
    if (m.doubleOutput) m.mvEnabled = m.dsEnabled = false;
    VPP_LOGI("config qoz needs %u output buffers per frame", m.outBufReqsPerFrame);
    if (params.mode != QOZMode::kFrc) return;

    m.upscaleIndex = params.upscaleIndex;
    // 1x keeps the previous ratio and leaves half-size copies as the property sets them.
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

// Compares with the stored settings, not with those that the service last accepted: a frame that
// carries settings which were stored but refused does not send them again.
StreamSettings::Changes StreamSettings::changesBy(const ConfigParams& params) const {
    Changes changes;
    changes.outBufReqs = outBufReqs(params) != m.outBufReqsPerFrame;
    changes.interpolation = params.interpFactor != m.interpFactor;
    changes.upscale = params.upscaleIndex != m.upscaleIndex;
    return changes;
}

// Only stores the settings; the caller sends them to the service and reshapes the session. Unlike
// config(), stores the factor without limiting it.
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

// Stores the code even if it is not in the table, so that the next frame with the same code changes
// nothing.
void StreamSettings::adoptUpscaleInBand(uint32_t upscaleIndex) {
    m.upscaleIndex = upscaleIndex;
    const UpscaleRow* row = findUpscale(upscaleIndex);
    if (row == nullptr) return;
    m.upscaleRatio = row->ratio;
    m.dsEnabled = row->downscaledCopies;
    VPP_LOGI("%s", row->inBandMessage);
}

// With the indices 1.5x and 2x the side is rounded up to an even number before and after scaling,
// so that half-size planes have whole dimensions. With the index 1x an odd side may stay odd.
uint32_t StreamSettings::scaledSide(uint32_t side) const {
    if (m.doubleOutput) return doubled(side);
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
