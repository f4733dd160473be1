// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/Worker.h"

#include <pthread.h>

#include <utility>

namespace qoz::host::vppservice {

namespace {

// Gives the thread its name and ordinary scheduling. A session may be opened on the real-time
// thread of a client in the same process, and its threads inherit that class. They would take the
// processor from the client while it waits for a frame.
void becomeOrdinary(const char* name) {
    const sched_param none{};
    pthread_setschedparam(pthread_self(), SCHED_OTHER, &none);
    pthread_setname_np(pthread_self(), name);
}

}  // namespace

void Worker::start(const char* name, std::function<void()> body) {
    if (mThread.joinable()) return;
    std::promise<void> done;
    mDone = done.get_future();
    mThread = std::thread([name, body = std::move(body), done = std::move(done)]() mutable {
        becomeOrdinary(name);
        body();
        body = nullptr;  // its objects may own this worker
        done.set_value();
    });
}

void Worker::finish(std::chrono::milliseconds limit) {
    if (!mThread.joinable()) return;
    const bool self = mThread.get_id() == std::this_thread::get_id();
    if (!self && mDone.wait_for(limit) == std::future_status::ready) {
        mThread.join();
    } else {
        mThread.detach();
    }
}

}  // namespace qoz::host::vppservice
