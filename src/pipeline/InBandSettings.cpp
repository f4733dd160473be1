// SPDX-License-Identifier: Apache-2.0
#include "pipeline/InBandSettings.h"

#include <new>
#include <optional>
#include <utility>

#include "stream/VppUtils.h"

namespace android {

// The results of the calls are not checked: each call logs its own failure, and the frame has been
// queued already.
void InBandSettings::apply(SourceFrame& frame, const ConfigParams& params) {
    const Changes changes = p.settings.changesBy(params);
    try {
        // Everything that allocates comes before anything is stored.
        std::set<uint32_t> codes;
        if (changes.outBufReqs) codes.insert(QOZChange::kOutBufReqs);
        if (changes.upscale) codes.insert(QOZChange::kUpscale);
        if (changes.interpolation) p.control.reserveSegment();
        if (!adopt(frame, params, changes)) return;
        if (changes.any()) p.client.configChanged(std::move(codes));
    } catch (const std::bad_alloc&) {
        VPP_LOGE("processBuffer: out of memory, settings not applied");
    }
}

// Returns false, with nothing stored, if an output buffer is still being queued when the wait ends.
bool InBandSettings::adopt(SourceFrame& frame, const ConfigParams& params, const Changes& changes) {
    std::optional<Gate::Closure> closure;
    if (changes.upscale) {
        closure.emplace(p.outputGate, &frame.waits);
        if (!*closure) {
            VPP_LOGE("processBuffer: an output buffer is still being queued, settings not applied");
            return false;
        }
    }
    p.settings.adoptInBand(params, changes);
    if (changes.interpolation) p.control.configFrc(frame.timestampUs());
    if (changes.upscale) reshape(frame);
    p.settings.publish();
    return true;
}

// The YUV pool is kept, because its buffers have the size of the input port, which does not change.
// The next frame counts as the first, because vectors from this frame to it would refer to a
// picture of another scale.
void InBandSettings::reshape(SourceFrame& frame) {
    const uint32_t format = VppUtils::GetYUVFormat(p.ports.inputFormat());
    p.flush.flushPorts(false, frame.waits);
    p.reconfiguration.run(frame.width, frame.height, format, frame.waits);
    if (p.settings.motionVectors()) holdPlace();
    if (p.converter.exists()) p.converter.configure(frame.source);
    p.converter.startAnew();
}

// If the place cannot be allocated, sources are released one frame earlier than usual. The first
// frame after a change of ratio has no reference anyway.
void InBandSettings::holdPlace() {
    try {
        p.heldSlots.holdPlace();
    } catch (const std::bad_alloc&) {
        VPP_LOGE("processBuffer: out of memory, sources are released at once");
    }
}

}  // namespace android
