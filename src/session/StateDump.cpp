// SPDX-License-Identifier: Apache-2.0
#include "session/StateDump.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <ctime>

namespace android {
namespace {

// The names of the worker's commands. The unused number 4 is named "other".
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

// Keeps a write to a pipe without a reader from ending the process: blocks SIGPIPE on this thread,
// and consumes a SIGPIPE that the write has raised.
class BrokenPipeGuard {
  public:
    BrokenPipeGuard() {
        sigemptyset(&mBrokenPipe);
        sigaddset(&mBrokenPipe, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        mWasPending = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &mBrokenPipe, &mPrevious);
    }
    ~BrokenPipeGuard() {
        if (!mWasPending) {
            const timespec atOnce{};
            while (sigtimedwait(&mBrokenPipe, nullptr, &atOnce) < 0 && errno == EINTR) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &mPrevious, nullptr);
    }
    BrokenPipeGuard(const BrokenPipeGuard&) = delete;
    BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;

  private:
    sigset_t mBrokenPipe{};
    sigset_t mPrevious{};
    bool mWasPending = false;
};

// Stops silently at the first error, because there is nobody to report it to.
void writeAll(int fd, const char* data, size_t size) {
    const BrokenPipeGuard guard;
    while (size > 0) {
        const ssize_t written = write(fd, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        data += written;
        size -= static_cast<size_t>(written);
    }
}

}  // namespace

void VppComponent::StateDump::writeTo(int fd) {
    addStream();
    addOutstanding();
    addPools();
    addDelivery();
    addWorker();
    addAwaited();
    writeAll(fd, mText.data(), mSize);
}

void VppComponent::StateDump::add(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const size_t left = mText.size() - mSize;
    const int length = std::vsnprintf(mText.data() + mSize, left, format, arguments);
    va_end(arguments);
    if (length > 0) mSize += std::min(static_cast<size_t>(length), left - 1);
}

// Uses the published facts, because the members belong to the thread that runs the stream, which
// may be the one that hangs.
void VppComponent::StateDump::addStream() {
    const StreamFacts facts = p.facts.read();
    add("VppComponent [%.64s](%p)\n", p.log.name()->c_str(), p.log.component());
    add("  state: %s%s\n", toString(c.state()),
        p.worker.isStartPending() ? ", a start is pending" : "");
    add("  input: %ux%u, format 0x%x, %ux frame rate, motion vectors %s, half-size copies %s\n",
        facts.inputWidth, facts.inputHeight, facts.format, facts.interpFactor + 1,
        onOff(facts.motionVectors), onOff(facts.downscaledCopies));
    add("  output: %ux%u, %u buffers a frame, last at %" PRIu64 " us\n", facts.outputWidth,
        facts.outputHeight, facts.outBufReqsPerFrame, c.mLastOutputTimestamp.load());
}

void VppComponent::StateDump::addOutstanding() {
    const auto [inputs, outputs] = p.outstanding.counts();
    add("  in the vpp: %u input, %u output\n", inputs, outputs);
    add("  held back: %zu\n", p.facts.heldSlots());
}

// Prints "in use" for a pool whose lock is held, for example by a request that is allocating.
void VppComponent::StateDump::addPools() {
    const auto addPool = [this](const char* name, const auto& sizes) {
        if (sizes) {
            add("  %s: %zu entries, %zu free\n", name, sizes->entries, sizes->free);
        } else {
            add("  %s: in use\n", name);
        }
    };
    addPool("NV12 pool", p.yuvPool.trySizes());
    addPool("side-buffer pool", p.sidePool.trySizes());
}

void VppComponent::StateDump::addDelivery() {
    const auto [waiting, current] = p.delivery.summary();
    add("  delivery: %zu waiting", waiting);
    if (current >= 0) add(", the client has slot %" PRId64, current);
    add("\n");
}

void VppComponent::StateDump::addWorker() {
    const auto [command, delivery] = p.worker.posted();
    add("  worker: %s, posted command %s%s\n", p.worker.isRunning() ? "running" : "none",
        commandName(command), delivery ? ", a delivery" : "");
}

void VppComponent::StateDump::addAwaited() {
    add("  awaited: %s\n", p.events.awaited());
    const auto answers = p.events.tryAnswers();
    if (!answers) {
        add("  answers: in use\n");
        return;
    }
    add("  answers: flush input %s, output %s; reconfigure %s; drain %s\n",
        doneOr(answers->inputFlushed), doneOr(answers->outputFlushed),
        answers->reconfigFailed ? "failed" : doneOr(answers->reconfigured),
        doneOr(answers->drained));
}

}  // namespace android
