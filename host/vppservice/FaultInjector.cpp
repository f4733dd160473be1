// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/FaultInjector.h"

#include <host/platform/Faults.h>

namespace qoz::host::vppservice {

void Pause::sleepFor(std::chrono::milliseconds time) {
    if (time.count() <= 0) return;
    std::unique_lock lock(mLock);
    const android::base::ScopedLockAssertion held(mLock);
    mCond.wait_for(lock, time, [this]() REQUIRES(mLock) { return mEnded; });
}

void Pause::end() {
    const std::lock_guard lock(mLock);
    mEnded = true;
    mCond.notify_all();
}

FaultEffect FaultInjector::effectOn(const char* operation) const {
    const std::optional<Fault> fault = takeFault(operation);
    if (!fault) return {};
    FaultEffect effect;
    switch (fault->kind) {
        case FaultKind::Code:
            effect.answer = static_cast<VppError>(fault->code);
            break;
        case FaultKind::Transport:
            effect.lost = true;
            break;
        case FaultKind::Drop:
            effect.manner = Manner::Drop;
            break;
        case FaultKind::Late:
            effect.delay = std::chrono::milliseconds(fault->code);
            break;
        case FaultKind::Twice:
            effect.manner = Manner::Twice;
            break;
        case FaultKind::Unknown:
            effect.manner = Manner::Unknown;
            break;
        case FaultKind::Keep:
            effect.answer = static_cast<VppError>(fault->code);
            effect.done = true;
            effect.manner = Manner::Untold;
            break;
        case FaultKind::Swap:
            effect.manner = Manner::Swap;
            break;
        case FaultKind::Stray:
            effect.manner = Manner::Stray;
            break;
        case FaultKind::Within:
            effect.manner = Manner::Within;
            break;
        case FaultKind::Die:
            effect.lost = true;
            mDie();
            break;
    }
    return effect;
}

}  // namespace qoz::host::vppservice
