// SPDX-License-Identifier: Apache-2.0
#include "qozplay/stream/WarmUp.h"

#include <host/control.h>

#include "client/BufferRing.h"

namespace qozplay {
namespace {

LateBuffers madeSoFar() {
    const uint64_t player = qoz::client::clientBuffersMade().load();
    return {qoz::host::counters().graphicBuffersMade - player, player};
}

}  // namespace

void WarmUp::passed() {
    const std::lock_guard lock(mLock);
    if (--mWaitingFor == 0) mBase = madeSoFar();
}

std::optional<LateBuffers> WarmUp::since() {
    const std::lock_guard lock(mLock);
    if (mWaitingFor != 0) return std::nullopt;
    const LateBuffers now = madeSoFar();
    return LateBuffers{now.component - mBase.component, now.player - mBase.player};
}

}  // namespace qozplay
