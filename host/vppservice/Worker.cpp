#include "host/vppservice/Worker.h"

#include <utility>

namespace qoz::host::vppservice {

void Worker::start(std::function<void()> body) {
    if (mThread.joinable()) return;
    std::promise<void> done;
    mDone = done.get_future();
    mThread = std::thread([body = std::move(body), done = std::move(done)]() mutable {
        body();
        body = nullptr;  // what it owned may own this worker
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
