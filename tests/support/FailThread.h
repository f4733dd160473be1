// SPDX-License-Identifier: Apache-2.0
// A thread that cannot be had, in the program that links fail_thread.cpp.
#pragma once

namespace qoz::test {

// Of the threads made from now on, the one of this number fails; 0: none.
void failThread(int number);

}  // namespace qoz::test
