// SPDX-License-Identifier: Apache-2.0
#include "pipeline/HeldSlots.h"

#include <utility>

namespace android {

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

void HeldSlots::releaseFront() {
    const int32_t slot = mSlots.front();
    mSpares.splice(mSpares.end(), mSlots, mSlots.begin());
    publish();
    if (slot == QOZBufferInfo::kNoSlot) return;
    VPP_LOGD("Input buffer slot=%d could be release after RGBToNV12", slot);
    mClient.giveBackSource(slot);
}

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
