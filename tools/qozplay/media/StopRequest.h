// SPDX-License-Identifier: Apache-2.0
// The request to end a run early.
#pragma once

#include <android/binder_auto_utils.h>
#include <sys/eventfd.h>

#include <atomic>
#include <cstdint>

namespace qozplay {

// Makes a run end in an orderly way, as at the end of its input. The thread that waits for signals
// makes the request. Sessions check it between frames, and a wait for a pipe includes its
// descriptor. Any thread may call any function.
class StopRequest {
  public:
    // Requests a stop because of this signal.
    void request(int signal) {
        mSignal.store(signal);
        (void)!eventfd_write(descriptor(), 1);
    }
    int signal() const { return mSignal.load(); }  // 0 if no stop has been requested
    bool requested() const { return signal() != 0; }

    // A descriptor that becomes readable when a stop is requested; -1 if it could not be created.
    int descriptor() const { return mEvent.get(); }

  private:
    const ndk::ScopedFileDescriptor mEvent{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    std::atomic<int> mSignal{0};  // read between two frames, without a lock
};

}  // namespace qozplay
