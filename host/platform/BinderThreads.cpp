#include <android/binder_process.h>
#include <host/platform/BinderThreads.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>

namespace qoz::host {
namespace {

constexpr int kThreads = 8;

struct Call {
    const std::function<void()>& work;
    bool done = false;
    std::condition_variable finished;
};

// Never destroyed, and its threads never end: like the platform's, the pool lives as long as the
// process.
class Pool {
  public:
    void start() {
        const std::lock_guard lock(mLock);
        if (mStarted) return;
        mStarted = true;
        for (int i = 1; i <= kThreads; ++i) {
            std::thread([this, i] { serve(i); }).detach();
        }
    }

    void run(const std::function<void()>& work) {
        Call call{.work = work, .finished = {}};
        std::unique_lock lock(mLock);
        mWaiting.push_back(&call);
        mPosted.notify_one();
        call.finished.wait(lock, [&call] { return call.done; });
    }

  private:
    void serve(int number) {
        pthread_setname_np(pthread_self(), ("binder:" + std::to_string(number)).c_str());
        std::unique_lock lock(mLock);
        for (;;) {
            mPosted.wait(lock, [this] { return !mWaiting.empty(); });
            Call* call = mWaiting.front();
            mWaiting.pop_front();
            lock.unlock();
            call->work();
            lock.lock();
            call->done = true;
            call->finished.notify_one();  // still under the lock: the caller owns the call
        }
    }

    std::mutex mLock;
    std::condition_variable mPosted;
    std::deque<Call*> mWaiting;
    bool mStarted = false;
};

Pool& pool() {
    static auto* instance = new Pool;
    return *instance;
}

}  // namespace

void callOnBinderThread(const std::function<void()>& call) {
    pool().run(call);
}

}  // namespace qoz::host

void ABinderProcess_startThreadPool() {
    qoz::host::pool().start();
}
