#include "host/vppservice/FaultGate.h"

#include <host/platform/Faults.h>

namespace qoz::host::vppservice {

void Pause::sleepFor(std::chrono::milliseconds time) {
    if (time.count() <= 0) return;
    std::unique_lock lock(mLock);
    mCond.wait_for(lock, time, [this] { return mEnded; });
}

void Pause::end() {
    const std::lock_guard lock(mLock);
    mEnded = true;
    mCond.notify_all();
}

Verdict FaultGate::judge(const char* operation) const {
    const std::optional<Fault> fault = takeFault(operation);
    if (!fault) return {};
    Verdict verdict;
    switch (fault->kind) {
        case FaultKind::Code:
            verdict.answer = static_cast<VppError>(fault->code);
            break;
        case FaultKind::Transport:
            verdict.lost = true;
            break;
        case FaultKind::Drop:
            verdict.manner = Manner::Drop;
            break;
        case FaultKind::Late:
            verdict.delay = std::chrono::milliseconds(fault->code);
            break;
        case FaultKind::Twice:
            verdict.manner = Manner::Twice;
            break;
        case FaultKind::Unknown:
            verdict.manner = Manner::Unknown;
            break;
        case FaultKind::Keep:
            verdict.answer = static_cast<VppError>(fault->code);
            verdict.done = true;
            break;
        case FaultKind::Swap:
            verdict.manner = Manner::Swap;
            break;
        case FaultKind::Stray:
            verdict.manner = Manner::Stray;
            break;
        case FaultKind::Die:
            verdict.lost = true;
            mDie();
            break;
    }
    return verdict;
}

}  // namespace qoz::host::vppservice
