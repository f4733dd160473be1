// SPDX-License-Identifier: Apache-2.0
// What of the log is shown, in logcat's words: TAG:PRIORITY ..., with V D I W E F S. It does not
// change once it has been made, so any thread may ask it.
#pragma once

#include <android/log.h>

#include <map>
#include <string>

namespace qozplay {

class LogFilter {
  public:
    // Errors and worse.
    LogFilter() = default;

    // Throws BadInput. Tags that no word names follow `*`, and without one are shown in full, as is
    // a tag without a priority. A later word wins.
    static LogFilter parse(const std::string& text);

    bool shows(int priority, const std::string& tag) const;

    // It shows what the library says only when its diagnostics are on.
    bool wantsDiagnostics() const { return shows(ANDROID_LOG_WARN, "VppComponent"); }

  private:
    std::map<std::string, int> mLeast;  // lowest priority shown, by tag
    int mElse = ANDROID_LOG_ERROR;
};

}  // namespace qozplay
