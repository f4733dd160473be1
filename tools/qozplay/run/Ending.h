// SPDX-License-Identifier: Apache-2.0
// The ways in which the process may have to end, and what then may not stay behind.
#pragma once

#include <filesystem>

#include "qozplay/media/StopRequest.h"

namespace qozplay {

// The first thing in a process: files that it opens take no standard stream's place.
void holdStandardStreams();

// What nobody catches, as when a thread of the simulator has no memory left, ends the process with
// a sentence and exit code 1, not with an abort. The temporary folder does not stay; on a file
// system that has no files without a name, a hidden file beside an unfinished output does.
void endPlainly();

// From now on SIGINT, SIGTERM and SIGHUP request a stop, and a second one ends the process at once;
// SIGPIPE and SIGXFSZ are left to the writer, who sees the error itself. To be called before any
// other thread is made: all of them leave these signals to the one that waits for them here. `stop`
// lasts as long as the process.
void stopOnSignals(StopRequest& stop);

// A folder for what a run needs for its own duration; a run has one at most. It is gone with the
// object, and also when the process ends at once and no object is destroyed.
class TemporaryFolder {
  public:
    // Throws BadInput.
    TemporaryFolder();
    ~TemporaryFolder();

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return mPath; }

  private:
    std::filesystem::path mPath;
};

}  // namespace qozplay
