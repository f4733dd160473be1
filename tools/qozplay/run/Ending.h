// SPDX-License-Identifier: Apache-2.0
// Ending the player's process: by signals, by uncaught exceptions, and without leaving temporary
// files.
#pragma once

#include <filesystem>

#include "qozplay/media/StopRequest.h"

namespace qozplay {

// Opens /dev/null in place of each standard stream that the caller has closed. Otherwise the next
// file to be opened would take the stream's number, and output for the stream would be written to
// that file. Must be called before the process opens any file.
void holdStandardStreams();

// Makes an uncaught exception end the process with a message and exit code 1 instead of abort().
// Such an exception occurs, for example, when a thread of the simulator cannot allocate memory. The
// temporary folder is removed. An unfinished output leaves nothing behind, except on a file system
// without O_TMPFILE, where its hidden file remains.
void endPlainly();

// From now on the first SIGINT, SIGTERM or SIGHUP requests a stop, and a second one ends the
// process at once. SIGPIPE and SIGXFSZ are ignored, so that writing fails with an error instead.
// Must be called before any other thread is created: every thread inherits the signal mask, which
// leaves these signals to the thread that waits for them. `stop` must exist until the process ends.
void stopOnSignals(StopRequest& stop);

// A folder for the temporary files of a run, of which there is at most one in a process. It is
// removed when the object is destroyed. It is also removed when the process ends without destroying
// objects: after a second signal, and after an uncaught exception.
class TemporaryFolder {
  public:
    // Throws BadInput if the folder cannot be made.
    TemporaryFolder();
    ~TemporaryFolder();

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return mPath; }

  private:
    std::filesystem::path mPath;
};

}  // namespace qozplay
