// SPDX-License-Identifier: Apache-2.0
// Calls from a component to its client. Private to src/.
#pragma once

#include <qoz/ClientTypes.h>

#include <cstdint>
#include <set>

namespace android {

// Makes every call of a component to its client, and records which threads are inside such a call.
// A client that called a waiting operation of the component from there would wait for itself.
//
// Any number of threads may call it at the same time. The client may release its reference to the
// component from within a call.
class ClientCallback {
  public:
    explicit ClientCallback(IQOZCallback*& callback) : mCallback(callback) {}

    ClientCallback(const ClientCallback&) = delete;
    ClientCallback& operator=(const ClientCallback&) = delete;

    // A null `callback` disables the calls.
    void set(IQOZCallback* callback);

    // Sources and conversion targets. Nothing is reported for a buffer without a slot.
    void giveBackSource(int32_t slot) const {
        if (slot != QOZBufferInfo::kNoSlot) giveBack(QOZPort::kSource, slot, 1, 0);
    }
    void giveBackTarget(int32_t slot) const {
        if (slot != QOZBufferInfo::kNoSlot) giveBackUnused(slot);
    }
    // Returns a buffer without a frame: one that was refused or lost with the service, or a
    // conversion target that the service has read.
    void giveBackUnused(int32_t slot) const { giveBack(QOZPort::kOutput, slot, 0, 0); }
    void deliver(int32_t slot, bool filled, uint64_t timestamp) const {
        giveBack(QOZPort::kOutput, slot, filled ? 1 : 0, timestamp);
    }
    void configChanged(std::set<uint32_t> changes) const;

    // Returns whether this thread is inside a call that this object has made.
    bool isOnThisThread() const;

  private:
    void giveBack(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) const;
    IQOZCallback* get() const;

    IQOZCallback*& mCallback;  // owned by the client; accessed only by get() and set()
};

}  // namespace android
