// SPDX-License-Identifier: Apache-2.0
#include <qoz/VppComponent.h>

#include <array>

#include "base/Log.h"

namespace android {

// Always printed and without a prefix, because neither the log gate nor the name is known yet.
VppComponent::VppStatus::VppStatus(status s) : mState(s) {
    __android_log_print(ANDROID_LOG_DEBUG, VPP_LOG_TAG, "status: %s", name(s));
}

VppComponent::VppStatus& VppComponent::VppStatus::operator=(status s) {
    if (mDebug) {
        __android_log_print(ANDROID_LOG_DEBUG, VPP_LOG_TAG, "status: %s->%s", name(get()), name(s));
    }
    mState.store(s);
    return *this;
}

const char* VppComponent::VppStatus::name(status s) {
    static constexpr std::array<const char*, 6> kNames{"UNINIT", "INIT",    "IDLE",
                                                       "ACTIVE", "PENDING", "ERROR"};
    return kNames[static_cast<size_t>(s)];
}

const char* toString(VppComponent::status s) {
    return VppComponent::VppStatus::name(s);
}

}  // namespace android
