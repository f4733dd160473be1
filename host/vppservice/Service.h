// SPDX-License-Identifier: Apache-2.0
// A VPP service in this process: it works from what it was sent and nothing else.
//
// What it decides where nothing tells it:
//
// Control. The factor of an interval is that of the FRC segment with the latest start at or before
// the interval's older source, as the control stands when the interval's newer source is queued; of
// equal starts the later in the list. Mode 0, level 0 or factor 0
// mean none; factors above 16 are refused. The AIS control takes frame-rate control out of force
// until the next FRC control. A session that is open may be set up and opened again: sizes hold
// for buffers queued afterwards, and nothing is lost.
//
// Time. A source not later than the one before it, or of another size, begins afresh, as after a
// flush: nothing is put in between. The newest source is kept as reference; its buffer goes back
// when its interval is complete or, when no frames are wanted from it on, at once.
//
// Pictures. Without vectors, frames in between are blends. With vectors they follow the motion. At
// a scene cut (mean match error of the fields above 32) the nearer source is repeated. The
// half-size frame raises detail when the output is larger than the input (see Renderer.h). A side
// buffer too small for its port is refused; one laid out for another size is not used. Pixels laid
// out for another size than their port's are refused: nobody could tell what they show.
//
// Returns. Outputs come in the order of their sources; unfilled ones have timestamp 0. A flush or a
// reconfiguration sends back, unfilled and before its event, what was held when it was called; a
// frame being written is finished first. A drain ends when the sources queued before it are
// finished or no output is queued.
//
// Ends. close() and terminateSession() drop what is held, wait for a callback under way (at most
// two seconds, and not when called from within it) and let go of the client's object on the calling
// thread. When the service dies, calls fail at once and what was held goes on a thread of its own.
//
// Faults. On an operation that is answered later by a callback (queueBuf, flush, reconfigure,
// drain), drop, twice and unknown apply to that callback; on others they change nothing. Within
// has the call of a flush, reconfiguration or drain make that callback itself, before it returns. A
// code on a callback goes with it when it has a status (eventReconfigDone); else eventError(code)
// goes before it, and an output buffer comes back unfilled. An operation answered with a code is
// not carried out, nor is terminateSession(), which has no answer. Operations that no client here
// calls, and getSessionCount(), have no faults.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/BnVppService.h>
#include <android-base/thread_annotations.h>

#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "host/vppservice/FaultInjector.h"
#include "host/vppservice/Quota.h"
#include "host/vppservice/SerialExecutor.h"
#include "host/vppservice/Session.h"

namespace qoz::host::vppservice {

// The factory, and the life of all its sessions.
class Service : public vpp::BnVppService {
  public:
    // `onDeath` is called once, on the thread of die(). Throws std::system_error when there is no
    // thread to be had.
    explicit Service(std::function<void()> onDeath = {}) : mOnDeath(std::move(onDeath)) {}

    static std::string instance();

    ndk::ScopedAStatus getNewVppSession(int32_t flags, std::shared_ptr<vpp::IVpp>* result) override
        EXCLUDES(mLock);
    ndk::ScopedAStatus getSessionCount(int32_t* result) override EXCLUDES(mLock);

    // The same for a client with a quota. Null when the call succeeds and there is no session.
    ndk::ScopedAStatus openSession(int32_t flags, std::shared_ptr<Quota> quota,
                                   std::shared_ptr<Session>* result) EXCLUDES(mLock);

    // From now on nothing answers. Returns at once, on any thread; what was held goes meanwhile, on
    // a thread of its own.
    void die() EXCLUDES(mLock);
    // After die(), on one thread: returns when all is gone.
    void awaitEnd();

  private:
    std::shared_ptr<FaultInjector> faults() EXCLUDES(mLock);
    std::vector<std::shared_ptr<Session>> sessions() EXCLUDES(mLock);
    bool isDead() EXCLUDES(mLock);

    const std::function<void()> mOnDeath;
    Pause mPause;
    std::mutex mLock;
    bool mDead GUARDED_BY(mLock) = false;
    std::shared_ptr<FaultInjector> mFaults GUARDED_BY(mLock);
    std::vector<std::weak_ptr<Session>> mSessions GUARDED_BY(mLock);

    std::once_flag mDeath;
    std::promise<void> mGone;
    SerialExecutor mReleases;  // made in time: at a death there may be no thread to be had
};

// A service under its instance name, from construction to destruction, which is its death.
class RegisteredService {
  public:
    explicit RegisteredService(std::function<void()> onDeath = {});
    ~RegisteredService();

    RegisteredService(const RegisteredService&) = delete;
    RegisteredService& operator=(const RegisteredService&) = delete;

    const std::shared_ptr<Service>& service() const { return mService; }

  private:
    const std::shared_ptr<Service> mService;
};

}  // namespace qoz::host::vppservice
