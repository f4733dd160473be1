// SPDX-License-Identifier: Apache-2.0
#include "qozplay/media/SubsampledSource.h"

#include <utility>

namespace qozplay {

SubsampledSource::SubsampledSource(std::unique_ptr<FrameSource> clip, uint32_t step,
                                   ReferenceScore& truth)
    : mClip(std::move(clip)), mStep(step), mReference(truth) {}

Rate SubsampledSource::rate() const {
    const Rate rate = mClip->rate();
    return {rate.num, rate.den * mStep};
}

std::optional<uint64_t> SubsampledSource::length() const {
    const std::optional<uint64_t> length = mClip->length();
    if (!length) return std::nullopt;
    return (*length + mStep - 1) / mStep;
}

// The frames held back count only once the given one after them is there: without it nothing is
// made in their place.
bool SubsampledSource::next(uint8_t* rgba, size_t stride) {
    const size_t row = size_t{4} * size().width;
    const size_t picture = row * size().height;
    const uint32_t held = mNext == 0 ? 0 : mStep - 1;
    mHeld.resize(picture * held);
    mHeldTimes.resize(held);
    for (uint32_t i = 0; i < held; ++i) {
        if (!mClip->next(mHeld.data() + picture * i, row)) return false;
        mHeldTimes[i] = mClip->timeOf(mNext + i);
    }
    if (!mClip->next(rgba, stride)) return false;
    for (uint32_t i = 0; i < held; ++i) {
        mReference.keep(mNext++, mHeldTimes[i], mHeld.data() + picture * i, row);
    }
    mReference.keep(mNext, mClip->timeOf(mNext), rgba, stride);
    ++mNext;
    return true;
}

}  // namespace qozplay
