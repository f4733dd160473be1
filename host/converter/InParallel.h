// Two halves of a piece of work at once.
#pragma once

#include <future>
#include <system_error>

namespace qoz::host {

// Runs both and returns when both are done: the second on a thread of its own, or after the first
// where no thread is to be had.
template <typename First, typename Second>
void inParallel(First first, Second second) {
    std::future<void> done;
    try {
        done = std::async(std::launch::async, second);
    } catch (const std::system_error&) {
        second();
    }
    first();
    if (done.valid()) done.get();
}

}  // namespace qoz::host
