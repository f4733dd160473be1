// SPDX-License-Identifier: Apache-2.0
// The client's callback interface from the component's side. Private to src/.
#pragma once

#include <qoz/ClientTypes.h>

#include <cstdint>
#include <set>

namespace android {

// Makes every call of a component to its client, and knows which threads are within one: a client
// that calls back into the component from there would wait for itself.
//
// Any thread calls, several at once. The client may let go of the component from within a call.
class ClientCallback {
  public:
    explicit ClientCallback(IQOZCallback*& callback) : mCallback(callback) {}

    ClientCallback(const ClientCallback&) = delete;
    ClientCallback& operator=(const ClientCallback&) = delete;

    // Null: there is nobody to call.
    void set(IQOZCallback* callback);

    void giveBackSource(int32_t slot) const { giveBack(QOZPort::kSource, slot, 1, 0); }
    // Without a frame: refused, lost with the service, or a conversion target that has been read.
    void giveBackUnused(int32_t slot) const { giveBack(QOZPort::kOutput, slot, 0, 0); }
    void deliver(int32_t slot, bool filled, uint64_t timestamp) const {
        giveBack(QOZPort::kOutput, slot, filled ? 1 : 0, timestamp);
    }
    void configChanged(std::set<uint32_t> changes) const;

    // Whether this thread is within a call that this object has made.
    bool isOnThisThread() const;

  private:
    void giveBack(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) const;
    IQOZCallback* get() const;

    IQOZCallback*& mCallback;  // borrowed from the client; through get() and set() only
};

}  // namespace android
