// SPDX-License-Identifier: Apache-2.0
// Asks everything that runs to end in good order, as at the end of the input. A signal sets it; the
// sessions look between two frames, and waits for a pipe watch its descriptor.
#pragma once

#include <android/binder_auto_utils.h>
#include <sys/eventfd.h>

#include <atomic>
#include <cstdint>

namespace qozplay {

class StopRequest {
  public:
    // Any thread.
    void request(int signal) {
        mSignal.store(signal);
        (void)!eventfd_write(descriptor(), 1);
    }
    int signal() const { return mSignal.load(); }  // 0: none yet
    bool requested() const { return signal() != 0; }

    // Readable once a stop has been requested; -1 when there was no descriptor to be had.
    int descriptor() const { return mEvent.get(); }

  private:
    const ndk::ScopedFileDescriptor mEvent{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    std::atomic<int> mSignal{0};  // read between two frames, without a lock
};

}  // namespace qozplay
