// SPDX-License-Identifier: Apache-2.0
#include "pipeline/HeldSlots.h"

#include <utility>

namespace android {

// More than one place would delay every release by one frame more, until the client runs out of
// sources.
void HeldSlots::holdPlace() {
    if (mSlots.empty()) hold(QOZBufferInfo::kNoSlot);
}

void HeldSlots::hold(int32_t slot) {
    if (mSpares.empty()) {
        mSlots.push_back(slot);
    } else {
        mSpares.front() = slot;
        mSlots.splice(mSlots.end(), mSpares, mSpares.begin());
    }
    publish();
}

// The list is not empty: the frame that calls this has just been put at its end. It is changed
// before the client is called, who may queue the next buffer from within.
void HeldSlots::releaseFront() {
    const int32_t slot = mSlots.front();
    mSpares.splice(mSpares.end(), mSlots, mSlots.begin());
    publish();
    if (slot == QOZBufferInfo::kNoSlot) return;
    VPP_LOGD("Input buffer slot=%d could be release after RGBToNV12", slot);
    mClient.giveBackSource(slot);
}

// At a flush: no frame after it uses a source from before it as its reference.
void HeldSlots::releaseAll() {
    const std::list<int32_t> released = std::exchange(mSlots, {});
    publish();
    for (const int32_t slot : released) {
        if (slot == QOZBufferInfo::kNoSlot) continue;
        VPP_LOGD("Valid buffer slot=%d could be released", slot);
        mClient.giveBackSource(slot);
    }
}

void HeldSlots::clear() {
    mSlots.clear();
    publish();
}

void HeldSlots::publish() {
    mFacts.update([this](StreamFacts& facts) { facts.heldSlots = mSlots.size(); });
}

}  // namespace android
