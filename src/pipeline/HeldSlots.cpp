// SPDX-License-Identifier: Apache-2.0
#include "pipeline/HeldSlots.h"

#include <utility>

namespace android {

// Keeps at most one place: each further place would delay every release by another frame, until the
// client had no free source left.
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

// The list is not empty, because the caller has just appended its own slot. The list is changed
// before the client is called, so that a dump() from within the callback shows what is still held.
void HeldSlots::releaseFront() {
    const int32_t slot = mSlots.front();
    mSpares.splice(mSpares.end(), mSlots, mSlots.begin());
    publish();
    if (slot == QOZBufferInfo::kNoSlot) return;
    VPP_LOGD("Input buffer slot=%d could be release after RGBToNV12", slot);
    mClient.giveBackSource(slot);
}

// Called at a flush. The last source stays the converter's reference frame: the next frame may
// still be compared with it, see IQOZCallback::onBufferDone().
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
    mFacts.setHeldSlots(mSlots.size());
}

}  // namespace android
