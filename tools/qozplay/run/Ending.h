// SPDX-License-Identifier: Apache-2.0
// The ways in which the process may have to end.
#pragma once

#include "qozplay/media/StopRequest.h"

namespace qozplay {

// The first thing in a process: files that it opens take no standard stream's place.
void holdStandardStreams();

// What nobody catches, as when a thread of the simulator has no memory left, ends the process with
// a sentence and exit code 1, not with an abort; nothing temporary stays.
void endPlainly();

// From now on SIGINT, SIGTERM and SIGHUP request a stop, and a second one ends the process at once;
// SIGPIPE and SIGXFSZ are left to the writer, who sees the error itself. To be called before any
// other thread is made: all of them leave these signals to the one that waits for them here. `stop`
// lasts as long as the process.
void stopOnSignals(StopRequest& stop);

}  // namespace qozplay
