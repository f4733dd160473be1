// SPDX-License-Identifier: Apache-2.0
// Enabling and disabling a component. Private to src/.
#pragma once

#include <qoz/VppComponent.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "base/Log.h"
#include "vpp/DeathWatch.h"

namespace android {

// Opens and closes the session with the service and starts and stops the output worker. Runs on the
// client's thread.
class VppComponent::SessionControl {
  public:
    SessionControl(VppComponent& component, Parts& parts);

    // As VppComponent documents them.
    bool enable(const std::string& name, IQOZCallback* callback, bool debug);
    void disable();

    // Counts the enables: which of them an event of the service belongs to.
    uint32_t number() const { return mNumber.load(std::memory_order_acquire); }

    // Finds the service and keeps it; false when it is not there.
    bool acquireService();

  private:
    // Parts of enable(), under the component's lock.
    bool begin(const std::string& name, IQOZCallback* callback, bool debug) REQUIRES(c.mLock);
    void beginSession();
    bool openSession();
    // Parts of disable(), and what a failed enable() undoes.
    void closeSession();
    void abandonSession();
    void letGoOfSession() EXCLUDES(c.mLock);
    // Asks for the notice of the service's death, and acts on it.
    void watchForDeath();
    void onServiceDied();
    void waitForPendingStart() const;

    VppComponent& c;
    Parts& p;
    SessionLog& mLog;
    std::atomic<uint32_t> mNumber{0};  // written by enable(), read by binder threads
    DeathWatch mDeathWatch;
};

}  // namespace android
