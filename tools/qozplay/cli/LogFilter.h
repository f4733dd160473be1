// SPDX-License-Identifier: Apache-2.0
// The filter of --log.
#pragma once

#include <android/log.h>

#include <map>
#include <string>

namespace qozplay {

// Selects log lines by tag and priority, with the syntax of logcat: TAG:PRIORITY ..., where the
// priority is one of V D I W E F S. A filter does not change after its construction, so any thread
// may use it.
class LogFilter {
  public:
    // Shows errors and fatal errors only.
    LogFilter() = default;

    // Parses a filter. A tag without a priority is shown in full. Tags that are not named have the
    // priority of `*`; without `*` they are shown in full. If a tag is named twice, the last one
    // counts. Throws BadInput.
    static LogFilter parse(const std::string& text);

    bool shows(int priority, const std::string& tag) const;

    // Returns true if the filter shows messages of the library that are written only while its
    // diagnostics are enabled.
    bool wantsDiagnostics() const { return shows(ANDROID_LOG_WARN, "VppComponent"); }

  private:
    std::map<std::string, int> mLeast;  // lowest priority shown, by tag
    int mElse = ANDROID_LOG_ERROR;      // lowest priority shown of all other tags
};

}  // namespace qozplay
