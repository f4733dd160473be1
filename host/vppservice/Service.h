// SPDX-License-Identifier: Apache-2.0
// The simulated VPP service. It takes its decisions only from the data that clients send. The
// interface leaves some behaviour to the service; this one behaves as follows.
//
// Control. The interpolation factor of an interval comes from the FRC segment with the latest start
// at or before the interval's older source; of two segments with equal starts the later one in the
// list counts. The control that is set when the interval's newer source is queued decides. Mode 0,
// level 0 and factor 0 mean no interpolated frames. Factors above 16 are refused. The AIS control
// switches frame-rate control off until the next FRC control. A session opens only after it has
// accepted a mode. The client may set the mode, the controls and the parameters of an open session
// and open it again: the sizes apply to buffers queued afterwards, and no queued buffer is lost.
//
// Time. A source starts a new sequence, as after a flush, if it is not later than the previous
// source or has another size. No frames are interpolated before it. The newest source stays as the
// reference frame. Its buffer is returned when the interval that it begins is complete, or at once
// if no frames are to follow it.
//
// Pictures. Without vectors, interpolated frames are blends of both sources. With vectors they
// follow the motion. At a scene cut, where more than 40 percent of the textured blocks have no
// match in either direction, the nearer source is repeated. The half-size frame raises detail if
// the output is larger than the input, see Renderer.h. A buffer is refused if its pixels are laid
// out for a size other than the port's, because nothing says what size they have. It is also
// refused if a side buffer is too small. A side buffer that is laid out for another size is
// ignored.
//
// Returns. Output buffers return in the order of their sources; an unfilled one has timestamp 0. A
// flush or a reconfiguration returns, before its event, the buffers that were held when it was
// called, and leaves output buffers unfilled. A frame that is being written is finished first. A
// drain ends when the sources queued before it are finished or no output buffer is queued.
//
// Ends. close() and terminateSession() drop all buffers, wait for the frame that is being written
// and for the callbacks under way, and release the client's object on the calling thread. They wait
// at most two seconds for the callback of each port, and not at all for a callback that they are
// called from. After the service dies, calls fail at once, and a thread of its own releases what
// the sessions held.
//
// Faults. Some operations are answered later by a callback: queueBuf, flush, reconfigure and drain.
// On these the faults drop, twice, unknown, swap and stray apply to that callback. On
// getNewVppSession, drop gives a null session; on other operations these faults change nothing. The
// fault within makes the call of a flush, reconfiguration or drain deliver its own callback before
// it returns. A code on an operation is its answer, and the operation is not carried out; this
// includes terminateSession(), which returns no answer. The fault keep answers with a code too, but
// carries the operation out. A code on a callback is passed with it if the callback has a status
// (eventReconfigDone); otherwise eventError(code) precedes it, and an output buffer returns
// unfilled. The operations of VppSessionBase and getSessionCount() have no faults.
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

// Creates the sessions and ends them when the service dies. The clients own the sessions; the
// service knows them by weak references. Operations may come on any thread. mLock guards the list
// of sessions and the mark of death and is not held while a session is called.
class Service : public vpp::BnVppService {
  public:
    // `onDeath` is called once, on the thread that calls die(). Throws std::system_error if the
    // thread for the releases cannot be created.
    explicit Service(std::function<void()> onDeath = {}) : mOnDeath(std::move(onDeath)) {}

    // The name under which the service is registered.
    static std::string instance();

    ndk::ScopedAStatus getNewVppSession(int32_t flags, std::shared_ptr<vpp::IVpp>* result) override
        EXCLUDES(mLock);
    ndk::ScopedAStatus getSessionCount(int32_t* result) override EXCLUDES(mLock);

    // Like getNewVppSession(), for a client with a quota. A call that succeeds with a null session
    // means that the service refused one.
    ndk::ScopedAStatus openSession(int32_t flags, std::shared_ptr<Quota> quota,
                                   std::shared_ptr<Session>* result) EXCLUDES(mLock);

    // Ends the service: from now on every call fails. Callable on any thread, also with the
    // client's locks held, because it does not wait: another thread releases what the sessions
    // held.
    void die() EXCLUDES(mLock);
    // Waits until everything is released. Call it after die(), once.
    void awaitEnd();

  private:
    // Creates the fault injector at its first use, since it needs a reference to the finished
    // object.
    std::shared_ptr<FaultInjector> faults() EXCLUDES(mLock);
    // Returns the sessions that still exist.
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
    SerialExecutor mReleases;  // created early: no thread may be available at the death
};

// Registers a service under its instance name for the lifetime of this object. The destructor ends
// the service and waits until everything is released.
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
