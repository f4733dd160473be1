// SPDX-License-Identifier: Apache-2.0
#include "client/FrameTrace.h"

#include <algorithm>

namespace qoz::client {

using qoz::host::traceArrow;
using qoz::host::traceCounter;

FrameTrace::FrameTrace(const std::string& session)
    : mSourcesOutstanding("sources outstanding (" + session + ")"),
      mOutputsOutstanding("outputs outstanding (" + session + ")") {}

void FrameTrace::sent(int32_t slot, uint64_t timestamp) {
    if (!qoz::host::tracing()) return;
    traceCounter("graphic buffers", static_cast<int64_t>(qoz::host::counters().graphicBuffersLive));
    const std::lock_guard lock(mLock);
    mSent[timestamp] = {slot, qoz::host::tracePoint()};
    if (mSent.size() > kRemembered) mSent.erase(mSent.begin());
}

void FrameTrace::returned(bool source, int32_t slot, uint64_t timestamp) {
    if (!qoz::host::tracing()) return;
    const std::lock_guard lock(mLock);
    if (!source) {
        const auto frame = mSent.lower_bound(timestamp);
        if (frame != mSent.end()) traceArrow("frame", frame->second.point);
        return;
    }
    const auto last = std::find_if(mSent.rbegin(), mSent.rend(),
                                   [slot](const auto& sent) { return sent.second.slot == slot; });
    if (last != mSent.rend()) traceArrow("source", last->second.point);
}

void FrameTrace::outstanding(bool source, size_t count) {
    traceCounter(source ? mSourcesOutstanding : mOutputsOutstanding, static_cast<int64_t>(count));
}

}  // namespace qoz::client
