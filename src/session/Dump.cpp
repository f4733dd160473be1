// The state of a component as text, for a person who looks at a stream that runs or hangs. Reads
// atomics, and under leaf locks, one at a time. A lock that is held across a call out (to the
// service, to the allocator) is only tried.
#include <qoz/VppComponent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>

namespace android {
namespace {

const char* commandName(int32_t command) {
    static constexpr std::array<const char*, 6> kNames{"none",    "init",  "start",
                                                       "deliver", "other", "exit"};
    const auto index = static_cast<size_t>(command);
    return index < kNames.size() ? kNames[index] : "unknown";
}

const char* doneOr(bool done) {
    return done ? "done" : "not done";
}

const char* onOff(bool on) {
    return on ? "on" : "off";
}

uint32_t upper(uint64_t pair) {
    return static_cast<uint32_t>(pair >> 32);
}

uint32_t lower(uint64_t pair) {
    return static_cast<uint32_t>(pair);
}

void writeAll(int fd, const char* data, size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        data += written;
        size -= static_cast<size_t>(written);
    }
}

}  // namespace

// Formats into memory of its own: a dump is wanted when memory is short, too.
class VppComponent::Dump {
  public:
    explicit Dump(const VppComponent& component) : c(component) {}

    void writeTo(int fd) {
        addStream();
        addBuffers();
        addYuvPool();
        addSidePool();
        addDelivery();
        addWorker();
        addAwaited();
        writeAll(fd, mText.data(), mSize);
    }

  private:
    __attribute__((__format__(printf, 2, 3))) void add(const char* format, ...) {
        va_list arguments;
        va_start(arguments, format);
        const size_t left = mText.size() - mSize;
        const int length = std::vsnprintf(mText.data() + mSize, left, format, arguments);
        va_end(arguments);
        if (length > 0) mSize += std::min(static_cast<size_t>(length), left - 1);
    }

    void addStream() {
        add("VppComponent [%.64s](%p)\n", c.mLogName.load(), static_cast<const void*>(&c));
        add("  state: %s%s\n", VppStatus::name(c.state()),
            c.mStartPending ? ", a start is pending" : "");
        const uint64_t in = c.mPublishedInSize.load(std::memory_order_relaxed);
        add("  input: %ux%u, format 0x%x, %ux frame rate, motion vectors %s, half-size copies %s\n",
            upper(in), lower(in), c.mPublishedFormat.load(std::memory_order_relaxed),
            c.mPublishedInterp.load(std::memory_order_relaxed) + 1,
            onOff(c.mPublishedMv.load(std::memory_order_relaxed)),
            onOff(c.mPublishedDs.load(std::memory_order_relaxed)));
        const uint64_t out = c.mPublishedOutSize.load(std::memory_order_relaxed);
        add("  output: %ux%u, %u buffers a frame, last at %" PRIu64 " us\n", upper(out), lower(out),
            c.outBufReqsPerFrame(), c.mLastOutputTimestamp.load());
    }

    void addBuffers() {
        uint32_t inputs = 0;
        uint32_t outputs = 0;
        {
            const std::lock_guard lock(c.mBufferDoneLock);
            inputs = c.mInputBuffersInVpp;
            outputs = c.mOutputBuffersInVpp;
        }
        add("  in the vpp: %u input, %u output\n", inputs, outputs);
        add("  held back: %zu\n", c.mPublishedHeld.load(std::memory_order_relaxed));
    }

    void addYuvPool() {
        if (!c.mYuvLock.try_lock()) return addBusy("NV12 pool");
        const size_t all = c.mYuvBufferMap.size();
        const size_t free = c.mFreeYuvIndex.size();
        c.mYuvLock.unlock();
        add("  NV12 pool: %zu entries, %zu free\n", all, free);
    }

    void addSidePool() {
        if (!c.mExtradataLock.try_lock()) return addBusy("side-buffer pool");
        const size_t all = c.mExtradataBufferMap.size();
        const size_t free = c.mFreeExtradataIndex.size();
        c.mExtradataLock.unlock();
        add("  side-buffer pool: %zu entries, %zu free\n", all, free);
    }

    void addDelivery() {
        size_t waiting = 0;
        int64_t current = -1;
        {
            const std::lock_guard lock(c.mVppOBDQueueLock);
            waiting = c.mVppOBDQueue.size();
            if (c.mCurrentOBD != nullptr) current = c.mCurrentOBD->cookie;
        }
        add("  delivery: %zu waiting", waiting);
        if (current >= 0) add(", the client has slot %" PRId64, current);
        add("\n");
    }

    void addWorker() {
        int32_t command = OBD_CMD_NONE;
        bool deliver = false;
        {
            const std::lock_guard lock(c.mOBDPostLock);
            command = c.mOBDCmd;
            deliver = c.mDeliverRequested;
        }
        add("  worker: %s, posted command %s%s\n", c.mOBDThreadRunning ? "running" : "none",
            commandName(command), deliver ? ", a delivery" : "");
    }

    // The command is announced before mEventLock's owner calls the service, so a hanging call
    // shows, too.
    void addAwaited() {
        add("  awaited: %s\n", c.mAwaited.load(std::memory_order_relaxed));
        if (!c.mEventLock.try_lock()) return addBusy("answers");
        const bool input = c.mInputFlushDone;
        const bool output = c.mOutputFlushDone;
        const bool reconfigured = c.mReconfigDone;
        const bool reconfigFailed = c.mReconfigFailed;
        const bool drained = c.mDrainDone;
        c.mEventLock.unlock();
        add("  answers: flush input %s, output %s; reconfigure %s; drain %s\n", doneOr(input),
            doneOr(output), reconfigFailed ? "failed" : doneOr(reconfigured), doneOr(drained));
    }

    void addBusy(const char* what) { add("  %s: in use\n", what); }

    const VppComponent& c;
    std::array<char, 1536> mText{};
    size_t mSize = 0;
};

void VppComponent::dump(int fd) const {
    Dump(*this).writeTo(fd);
}

}  // namespace android
