// SPDX-License-Identifier: Apache-2.0
// Enabling and disabling a component. Private to src/.
#pragma once

#include <qoz/VppComponent.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "base/Gate.h"
#include "base/Log.h"
#include "vpp/DeathWatch.h"

namespace android {

// Opens and closes the session with the service, and starts and stops the output worker. Runs on
// the client's thread, or on the thread that releases the last reference to the component.
class VppComponent::SessionControl {
  public:
    SessionControl(VppComponent& component, Parts& parts);

    // See VppComponent.
    bool enable(const std::string& name, IQOZCallback* callback, bool debug);
    void disable();

    // Returns the number of the session. Each enable() of a component that is UNINIT begins a new
    // one; an event of the service belongs to the session with the same number.
    uint32_t number() const { return mNumber.load(std::memory_order_acquire); }

    // Finds the service and stores it. Returns false if it was not found.
    bool acquireService();

  private:
    // Steps of enable(), under the component's lock.
    bool begin(const std::string& name, IQOZCallback* callback, bool debug) REQUIRES(c.mLock);
    void beginSession();
    bool openSession();
    // Steps of disable(); abandonSession() cleans up after a failed enable().
    void closeSession();
    void abandonSession();
    void letGoOfSession() EXCLUDES(c.mLock);
    // Requests notification of the service's death, and handles it.
    void watchForDeath();
    void onServiceDied(uint32_t session);
    void waitForPendingStart() const;
    void awaitOtherThreads(std::optional<Gate::Closure>& closure) const;

    VppComponent& c;
    Parts& p;
    SessionLog& mLog;
    std::atomic<uint32_t> mNumber{0};  // written by enable(), read by binder threads
    DeathWatch mDeathWatch;
};

}  // namespace android
