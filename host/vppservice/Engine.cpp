// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/Engine.h"

#include <host/control.h>

#include <utility>

namespace qoz::host::vppservice {
namespace {

// Limit for the frame under way when the engine stops. It is far longer than one frame takes, even
// under a sanitizer.
constexpr std::chrono::seconds kLongestFrame{10};

// Returns the time after `index` of `factor` + 1 equal steps from `from` to `to`. Dividing before
// multiplying keeps the products within 64 bits.
uint64_t timeBetween(uint64_t from, uint64_t to, uint32_t index, uint32_t factor) {
    const uint64_t length = to - from;
    const uint64_t steps = uint64_t{factor} + 1;
    return from + length / steps * index + length % steps * index / steps;
}

}  // namespace

Engine::Engine(const std::shared_ptr<vpp::IVppCallbacks>& callbacks,
               const std::shared_ptr<FaultInjector>& faults)
    : mInputDispatcher(std::make_shared<CallbackDispatcher>(callbacks, faults)),
      mOutputDispatcher(std::make_shared<CallbackDispatcher>(callbacks, faults)) {}

void Engine::start() {
    mInputDispatcher->start();
    mOutputDispatcher->start();
    mWorker.start("vpp engine", [self = shared_from_this()] { self->run(); });
}

// The queued buffers are destroyed after the lock is released, because unmapping them takes time.
// The engine thread ends before the dispatchers, so that it cannot post to a stopped one; if its
// frame takes longer than the limit, the dispatchers ignore it.
void Engine::stop() {
    std::deque<QueuedSource> inputs;
    std::deque<ImportedBuffer> outputs;
    std::deque<Command> commands;
    {
        const std::lock_guard lock(mLock);
        mStopped = true;
        inputs.swap(mInputs);
        outputs.swap(mOutputs);
        commands.swap(mCommands);
        mCond.notify_one();
    }
    mWorker.finish(kLongestFrame);
    mInputDispatcher->stop();
    mOutputDispatcher->stop();
}

VppError Engine::setFrc(const std::vector<vpp::VppCtrlFrcSegment>& segments) {
    const std::lock_guard lock(mLock);
    return mFrc.set(segments);
}

void Engine::clearFrc() {
    const std::lock_guard lock(mLock);
    mFrc.clear();
}

// The source counts as the newest only when it is in the queue, which it is not on allocation
// failure: the next one would have frames between itself and a source that never comes.
void Engine::queueInput(ImportedBuffer buffer) {
    const std::lock_guard lock(mLock);
    if (mStopped) return;
    const uint32_t between = framesBefore(buffer);
    const std::pair newest{unsignedOf(buffer.record.timestamp), buffer.sizes.input};
    mInputs.push_back({std::move(buffer), between});
    mNewest = newest;
    ++mQueued;
    mCond.notify_one();
}

// Returns the number of interpolated frames between the source queued last and this one. It is 0 if
// this source starts a new sequence: it is the first one, it is not later than the last one, or its
// size differs.
uint32_t Engine::framesBefore(const ImportedBuffer& source) {
    if (!mNewest) return 0;
    const auto& [timestamp, size] = *mNewest;
    const bool follows =
        timestamp < unsignedOf(source.record.timestamp) && size == source.sizes.input;
    return follows ? mFrc.factorAt(timestamp) : 0;
}

void Engine::queueOutput(ImportedBuffer buffer) {
    const std::lock_guard lock(mLock);
    if (mStopped) return;
    mOutputs.push_back(std::move(buffer));
    mCond.notify_one();
}

void Engine::flush(VppPort port, Answer answer) {
    give({.event = Callback::Kind::FlushDone,
          .answer = std::move(answer),
          .port = port,
          .clearsInput = port == VppPort::INPUT,
          .clearsOutput = port == VppPort::OUTPUT});
}

void Engine::reconfigure(Answer answer) {
    give({.event = Callback::Kind::ReconfigDone,
          .answer = std::move(answer),
          .clearsInput = true,
          .clearsOutput = true});
}

void Engine::drain(Answer answer) {
    give({.event = Callback::Kind::DrainDone, .answer = std::move(answer)});
}

// Queues a command. The buffers that it returns leave the queues here and not on the engine thread,
// so that the command does not affect buffers queued after it. They stay in the queues if the
// command cannot be queued on allocation failure.
void Engine::give(Command command) {
    const std::lock_guard lock(mLock);
    if (mStopped) return;
    command.until = mQueued;
    mCommands.push_back(std::move(command));
    Command& given = mCommands.back();
    if (given.clearsInput) {
        given.inputs.swap(mInputs);
        mTaken = mQueued;
        mNewest.reset();
    }
    if (given.clearsOutput) given.outputs.swap(mOutputs);
    mCond.notify_one();
}

// The body of the engine thread. The last sources are released here, since only this thread uses
// them.
void Engine::run() {
    for (;;) {
        Work work = awaitWork();
        if (auto* command = std::get_if<Command>(&work)) {
            obey(std::move(*command));
        } else if (auto* input = std::get_if<QueuedSource>(&work)) {
            begin(std::move(*input));
        } else if (auto* output = std::get_if<ImportedBuffer>(&work)) {
            write(std::move(*output));
        } else {
            break;
        }
    }
    mJob.reset();
    mReference.reset();
}

// Waits for the next task and takes it out of its queue. Commands come first. A source is taken
// only when no interval is under way, and an output buffer only when there is a frame to write into
// it.
Engine::Work Engine::awaitWork() {
    const auto take = [](auto& queue) {
        Work work = std::move(queue.front());
        queue.pop_front();
        return work;
    };
    std::unique_lock lock(mLock);
    const android::base::ScopedLockAssertion held(mLock);
    for (;;) {
        if (mStopped) return {};
        if (!mCommands.empty() && isDue(mCommands.front())) return take(mCommands);
        if (!mJob && !mInputs.empty()) {
            ++mTaken;
            return take(mInputs);
        }
        if (mJob && !mOutputs.empty()) return take(mOutputs);
        mCond.wait(lock);
    }
}

// A drain is due when all sources queued before it are finished, or when an unfinished interval has
// no output buffer left. The other commands are due at once.
bool Engine::isDue(const Command& command) const {
    if (command.event != Callback::Kind::DrainDone) return true;
    return mJob ? mOutputs.empty() : mTaken >= command.until;
}

// Returns the unfinished buffers of a command and then posts its event.
void Engine::obey(Command command) {
    if (command.clearsInput) abandon();
    for (QueuedSource& input : command.inputs) {
        postInput(std::move(input.buffer));
    }
    for (ImportedBuffer& output : command.outputs) {
        output.record.timestamp = 0;  // marks the buffer as unfilled
        postOutput(std::move(output));
    }
    announce(command);
}

// Posts the event of a command behind the buffers that were posted before. A flush event goes to
// the dispatcher of its port. The other events go to both dispatchers and are delivered by the one
// that reaches them last, so that they follow the buffers of both ports.
void Engine::announce(const Command& command) {
    const bool both = command.event != Callback::Kind::FlushDone;
    const auto barrier = both ? std::make_shared<std::atomic<int>>(2) : nullptr;
    const auto callback = [&] {
        Callback made;
        made.kind = command.event;
        made.manner = command.answer.manner;
        made.port = command.port;
        made.barrier = barrier;
        made.within = command.answer.within;
        return made;
    };
    if (both || command.port == VppPort::INPUT) mInputDispatcher->post(callback());
    if (both || command.port == VppPort::OUTPUT) mOutputDispatcher->post(callback());
}

// Makes a queued source the current job and, if there are frames to interpolate, measures its
// interval.
void Engine::begin(QueuedSource input) {
    const TraceSlice slice("begin interval");
    Job job;
    job.source = mRenderer.open(std::move(input.buffer));
    job.factor = input.between;
    if (job.factor > 0) mRenderer.beginInterval(*mReference, job.source);
    mJob = std::move(job);
}

// Writes the next frame of the interval into an output buffer and returns the buffer.
void Engine::write(ImportedBuffer output) {
    Job& job = *mJob;
    const TraceSlice slice(job.next < job.factor ? "write between" : "write source");
    const Nv12Canvas canvas = output.outputCanvas();
    setUnsigned(output.record.timestamp, job.source.timestamp);
    if (job.next < job.factor) {
        const uint32_t index = job.next + 1;
        mRenderer.writeBetween(*mReference, job.source, {index, job.factor + 1}, canvas);
        setUnsigned(output.record.timestamp,
                    timeBetween(mReference->timestamp, job.source.timestamp, index, job.factor));
    } else {
        mRenderer.write(job.source, canvas);
    }
    const FrameSize size = canvas.size;
    setUnsigned(output.record.pixelFilledLen,
                static_cast<uint32_t>(nv12Layout(size.width, size.height).size));
    const bool isLast = job.next == job.factor;
    ++job.next;
    // The client may give the side buffers to another frame when it has this frame's output.
    if (isLast) job.source.input->dropSides();
    postOutput(std::move(output));
    if (isLast) retire();
}

// Completes the interval: its newer source becomes the reference frame of the next one. If no
// frames are to follow the source, the client gets its buffer back at once. The engine keeps a
// copy, because a control that the client sets later may still ask for frames after this source.
void Engine::retire() {
    Source source = std::move(mJob->source);
    mJob.reset();
    if (mReference) {
        giveBack(*mReference);
        mRenderer.recycle(std::move(*mReference));
    }
    if (factorAt(source.timestamp) == 0) {
        mRenderer.keepCopy(source);
        giveBack(source);
    }
    mReference = std::move(source);
}

// Returns the input buffers of the interval under way and forgets both of its sources.
void Engine::abandon() {
    if (mReference) giveBack(*mReference);
    if (mJob) giveBack(mJob->source);
    mReference.reset();
    mJob.reset();
}

// Returns the input buffer of a source, unless that has been done before.
void Engine::giveBack(Source& source) {
    if (!source.input) return;
    postInput(std::move(*source.input));
    source.input.reset();
}

void Engine::postInput(ImportedBuffer buffer) {
    mInputDispatcher->post(release(Callback::Kind::InputDone, &buffer));
}

void Engine::postOutput(ImportedBuffer buffer) {
    mOutputDispatcher->post(release(Callback::Kind::OutputDone, &buffer));
}

// Ends the mappings of a buffer and returns the callback that returns it. The client may queue the
// memory again as soon as the callback is posted.
Callback Engine::release(Callback::Kind kind, ImportedBuffer* buffer) {
    Callback callback{kind, buffer->manner, std::move(buffer->record)};
    *buffer = {};
    return callback;
}

// Returns the factor that is in effect now for an interval from `timestamp` on.
uint32_t Engine::factorAt(uint64_t timestamp) {
    const std::lock_guard lock(mLock);
    return mFrc.factorAt(timestamp);
}

}  // namespace qoz::host::vppservice
