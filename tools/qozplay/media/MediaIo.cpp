// SPDX-License-Identifier: Apache-2.0
#include "qozplay/media/MediaIo.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <new>

namespace qozplay {
namespace {

constexpr int kBuffer = 1 << 16;  // bytes

}  // namespace

MediaIo::MediaIo(int descriptor, Direction direction, const StopRequest& stop)
    : mDescriptor(descriptor), mStop(stop) {
    struct stat info {};
    const bool known = fstat(descriptor, &info) == 0;
    const bool file = known && S_ISREG(info.st_mode);
    mMayFill = known && (S_ISFIFO(info.st_mode) || S_ISSOCK(info.st_mode));
    auto* buffer = static_cast<uint8_t*>(av_malloc(kBuffer));
    if (buffer == nullptr) throw std::bad_alloc();
    const bool writes = direction == Direction::Write;
    mContext = avio_alloc_context(buffer, kBuffer, writes ? 1 : 0, this, writes ? nullptr : read,
                                  writes ? write : nullptr, file ? seek : nullptr);
    if (mContext != nullptr) return;
    av_free(buffer);
    throw std::bad_alloc();
}

MediaIo::~MediaIo() {
    av_freep(&mContext->buffer);
    avio_context_free(&mContext);
}

// Waits until the descriptor is ready. Returns false if a stop is requested first.
bool MediaIo::await(short events) const {
    std::array<pollfd, 2> both{{{mDescriptor, events, 0}, {mStop.descriptor(), POLLIN, 0}}};
    while (poll(both.data(), both.size(), -1) < 0 && errno == EINTR) {
    }
    return both[0].revents != 0;
}

// Reads at most `size` bytes. Returns AVERROR_EXIT if a stop is requested during the wait.
int MediaIo::read(void* self, uint8_t* bytes, int size) {
    const auto& io = *static_cast<MediaIo*>(self);
    if (!io.await(POLLIN)) return AVERROR_EXIT;
    const ssize_t got = ::read(io.mDescriptor, bytes, static_cast<size_t>(size));
    if (got < 0) return AVERROR(errno);
    return got == 0 ? AVERROR_EOF : static_cast<int>(got);
}

// The most bytes that one write may have, so that it does not wait for the reader: a stop request
// could not end that wait. When poll() reports room, a pipe takes PIPE_BUF bytes, and an empty one
// as many as it holds.
int MediaIo::atOnce(int size) const {
    if (!mMayFill) return size;
    int unread = 0;
    const bool empty = ioctl(mDescriptor, FIONREAD, &unread) == 0 && unread == 0;
    const int room = empty ? fcntl(mDescriptor, F_GETPIPE_SZ) : 0;  // negative for a socket
    return std::min(size, std::max(room, PIPE_BUF));
}

// Writes all bytes. Returns AVERROR_EXIT if a stop is requested while the reader does not read.
int MediaIo::write(void* self, uint8_t* bytes, int size) {
    const auto& io = *static_cast<MediaIo*>(self);
    for (int done = 0; done < size;) {
        if (!io.await(POLLOUT)) return AVERROR_EXIT;
        const ssize_t wrote =
            ::write(io.mDescriptor, bytes + done, static_cast<size_t>(io.atOnce(size - done)));
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote < 0) return AVERROR(errno);
        done += static_cast<int>(wrote);
    }
    return size;
}

// Moves to an offset and returns the new one, or returns the size of the file for AVSEEK_SIZE.
int64_t MediaIo::seek(void* self, int64_t offset, int whence) {
    const auto& io = *static_cast<MediaIo*>(self);
    if ((whence & AVSEEK_SIZE) != 0) {
        struct stat info {};
        return fstat(io.mDescriptor, &info) == 0 ? info.st_size : AVERROR(errno);
    }
    const off_t at = lseek(io.mDescriptor, offset, whence & ~AVSEEK_FORCE);
    return at < 0 ? AVERROR(errno) : at;
}

}  // namespace qozplay
