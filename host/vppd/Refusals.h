// SPDX-License-Identifier: Apache-2.0
// Log messages about refused calls.
#pragma once

#include <android/log.h>

#include <cinttypes>
#include <cstdint>

namespace qoz::host::vppd {

// Counts refused calls and logs the 1st, 2nd, 4th, 8th and so on, so that a flood of calls does not
// flood the log. Owned by the object that refuses the calls; used only on the thread that reads the
// bus.
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
