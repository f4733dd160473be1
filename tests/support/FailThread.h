// SPDX-License-Identifier: Apache-2.0
// Makes the creation of threads fail, in a program that contains fail_thread.cpp.
#pragma once

namespace qoz::test {

// Makes the creation of the `number`th thread from now on fail, and unless `once` is set also that
// of all later threads. 0 means that none fails.
void failThreads(int number, bool once = true);

// Returns whether the creation of a thread has failed since the last failThreads().
bool hasThreadFailed();

}  // namespace qoz::test
