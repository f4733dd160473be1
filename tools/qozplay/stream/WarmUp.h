// SPDX-License-Identifier: Apache-2.0
// Tells the buffers that a run needs to get going from those made later. The host simulator counts
// for the whole process, so the line is drawn when the last session has sent its first frames.
#pragma once

#include <android-base/thread_annotations.h>

#include <mutex>

#include "qozplay/report/Stats.h"

namespace qozplay {

class WarmUp {
  public:
    explicit WarmUp(uint32_t sessions) : mWaitingFor(sessions) {}

    void passed() EXCLUDES(mLock);  // by each session once; any thread
    std::optional<LateBuffers> since() EXCLUDES(mLock);

  private:
    std::mutex mLock;
    uint32_t mWaitingFor GUARDED_BY(mLock);  // sessions
    LateBuffers mBase GUARDED_BY(mLock);
};

}  // namespace qozplay
