// SPDX-License-Identifier: Apache-2.0
#include <poll.h>
#include <ui/Fence.h>
#include <unistd.h>

#include <cerrno>

namespace android {

const sp<Fence> Fence::NO_FENCE(new Fence);

Fence::~Fence() {
    if (mFenceFd != -1) close(mFenceFd);
}

// If a signal interrupts poll(), the wait starts again with the whole timeout.
status_t Fence::wait(int timeout) {
    if (!isValid()) return NO_ERROR;
    pollfd waited{.fd = mFenceFd, .events = POLLIN, .revents = 0};
    int ready;
    do {
        ready = poll(&waited, 1, timeout);
    } while (ready < 0 && errno == EINTR);
    if (ready < 0) return -errno;
    return ready == 0 ? -ETIME : NO_ERROR;
}

}  // namespace android
