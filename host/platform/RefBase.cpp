// SPDX-License-Identifier: Apache-2.0
#include <utils/RefBase.h>

namespace android {

RefBase::~RefBase() = default;

void RefBase::incStrong(const void*) const {
    mStrong.fetch_add(1, std::memory_order_relaxed);
}

void RefBase::decStrong(const void*) const {
    // Acquire-release: the thread that deletes the object must see what other owners wrote.
    if (mStrong.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

int32_t RefBase::getStrongCount() const {
    return mStrong.load(std::memory_order_relaxed);
}

}  // namespace android
