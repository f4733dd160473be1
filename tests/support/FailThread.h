// SPDX-License-Identifier: Apache-2.0
// Threads that cannot be had, in the program that links fail_thread.cpp.
#pragma once

namespace qoz::test {

// Of the threads made from now on, the one of this number fails, or all from that one on; 0: none.
void failThreads(int number, bool once = true);

// Whether one has failed since then.
bool hasThreadFailed();

}  // namespace qoz::test
