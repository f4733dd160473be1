// Brings one port's news to the client, in the order posted.
#pragma once

#include "host/vppservice/FaultGate.h"
#include "host/vppservice/Types.h"
#include "host/vppservice/Worker.h"

#include <aidl/vendor/vuq/hardware/vpp/IVppCallbacks.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

namespace qoz::host::vppservice {

struct Notice {
    enum class Kind { InputDone, OutputDone, FlushDone, ReconfigDone, DrainDone };

    Kind kind = Kind::DrainDone;
    Manner manner = Manner::Plain;
    VppBuffer buffer = {};  // of the two buffer returns
    VppPort port = {};      // of a flush
    // Couriers that still have to come by before the event is true; the last one brings it.
    std::shared_ptr<std::atomic<int>> barrier = nullptr;
};

// One thread, which makes each call on a binder thread and holds no lock meanwhile. Notices made
// late on purpose wait aside and stall nobody.
class Courier : public std::enable_shared_from_this<Courier> {
  public:
    Courier(std::shared_ptr<vpp::IVppCallbacks> callbacks, std::shared_ptr<FaultGate> gate)
        : mGate(std::move(gate)), mCallbacks(std::move(callbacks)) {}

    void start();
    void post(Notice notice);

    // Drops what is not under way, waits for what is, and lets go of the client's object on the
    // calling thread, which may destroy the client. Called from within a callback of this very
    // courier it does not wait.
    void stop();

  private:
    using Clock = std::chrono::steady_clock;
    struct Parcel {
        Notice notice;
        std::optional<Verdict> verdict;  // once judged
        std::shared_ptr<vpp::IVppCallbacks> to;
    };

    void run();
    bool next(Parcel* out);
    bool judge(Parcel* parcel);
    void deliver(Parcel* parcel) const;
    void bring(vpp::IVppCallbacks& to, const Notice& notice, VppError status) const;

    const std::shared_ptr<FaultGate> mGate;

    std::mutex mLock;
    std::condition_variable mCond;
    std::deque<Notice> mNotices;
    std::multimap<Clock::time_point, Parcel> mLate;
    std::shared_ptr<vpp::IVppCallbacks> mCallbacks;
    bool mStopped = false;

    Worker mWorker;
};

}  // namespace qoz::host::vppservice
