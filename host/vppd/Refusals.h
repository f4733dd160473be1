// SPDX-License-Identifier: Apache-2.0
// Messages about callers that were refused.
#pragma once

#include <android/log.h>

#include <cinttypes>
#include <cstdint>

namespace qoz::host::vppd {

// Logs the first refusal, the second, the fourth and so on, so that a flood of calls is no flood of
// messages. Owned by the object that refuses; for the thread that reads the bus.
class Refusals {
  public:
    void log(const char* operation, const char* caller, const char* why) {
        ++mCount;
        if ((mCount & (mCount - 1)) != 0) return;
        __android_log_print(ANDROID_LOG_ERROR, "vppd",
                            "%s from %s refused: %s (%" PRIu64 " so far)", operation, caller, why,
                            mCount);
    }

  private:
    uint64_t mCount = 0;
};

}  // namespace qoz::host::vppd
