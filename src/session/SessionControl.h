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

    bool enable(const std::string& name, IQOZCallback* callback, bool debug);
    void disable();

    // Counts the enables: which of them an event of the service belongs to.
    uint32_t number() const { return mNumber.load(std::memory_order_acquire); }

    bool acquireService();

  private:
    bool begin(const std::string& name, IQOZCallback* callback, bool debug) REQUIRES(c.mLock);
    void beginSession();
    bool openSession();
    void closeSession();
    void abandonSession();
    void letGoOfSession() EXCLUDES(c.mLock);
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
