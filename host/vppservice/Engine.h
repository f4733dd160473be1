// SPDX-License-Identifier: Apache-2.0
// The engine of one session. It holds the queues of both ports and the thread that turns source
// frames into output frames.
//
//   queueInput ──> mInputs ──┐                       ┌──> output dispatcher ──> client
//   queueOutput ─> mOutputs ─┼─> engine thread ──────┤
//   flush, ... ──> mCommands ┘                       └──> input dispatcher ───> client
//
// A flush or a reconfiguration is carried out before the frames that still wait in the queues, but
// it never interrupts a frame that is being written. The buffers that it returns leave the queues
// at the moment of the call, so that buffers queued after the call stay. A drain waits for the
// sources queued before it. The number of interpolated frames between two sources is decided when
// the newer source is queued: a control that the client sets later does not change earlier
// intervals.
#pragma once

#include <android-base/thread_annotations.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include "host/vppservice/CallbackDispatcher.h"
#include "host/vppservice/FrcControl.h"
#include "host/vppservice/ImportedBuffer.h"
#include "host/vppservice/Renderer.h"

namespace qoz::host::vppservice {

// The session owns the engine; the engine thread holds a reference too while it runs, so that an
// engine whose thread did not end in time is not destroyed under it. The public operations run on
// the threads of the session's calls, and only stop() waits. The engine calls neither the
// dispatchers nor the client while it holds mLock.
class Engine : public std::enable_shared_from_this<Engine> {
  public:
    Engine(const std::shared_ptr<vpp::IVppCallbacks>& callbacks,
           const std::shared_ptr<FaultInjector>& faults);

    // Starts the engine thread and both dispatchers. Throws std::system_error if a thread cannot be
    // created; the caller may then try again.
    void start();

    // Drops all queued buffers and commands, ends the threads, and releases the client's object as
    // CallbackDispatcher::stop() does. Waits until the frame and the callbacks under way are
    // finished, at most ten seconds for the frame and two seconds for the callback of each port.
    void stop() EXCLUDES(mLock);

    // Replaces or removes the frame-rate control. It applies to sources that are queued from now
    // on.
    VppError setFrc(const std::vector<vpp::VppCtrlFrcSegment>& segments) EXCLUDES(mLock);
    void clearFrc() EXCLUDES(mLock);

    // The engine returns every queued buffer to the client through a dispatcher, unless stop()
    // drops it.
    void queueInput(ImportedBuffer buffer) EXCLUDES(mLock);
    void queueOutput(ImportedBuffer buffer) EXCLUDES(mLock);

    // Each of these commands is answered by an event, unless it throws std::bad_alloc; it has no
    // effect then, and neither has a buffer whose queueing throws it. A flush returns the
    // unfinished buffers of its port, a reconfiguration those of both ports, before the event.
    // After input buffers were returned, the next source starts a new sequence, without
    // interpolated frames before it.
    void flush(VppPort port, Answer answer);
    void reconfigure(Answer answer);
    // Finishes the sources that were queued before the call, or as many of them as the queued
    // output buffers allow.
    void drain(Answer answer);

  private:
    // A queued source, and the number of interpolated frames between it and the source queued
    // before it.
    struct QueuedSource {
        ImportedBuffer buffer;
        uint32_t between = 0;
    };

    // A flush, reconfiguration or drain that waits for the engine thread.
    struct Command {
        Callback::Kind event;
        Answer answer;
        VppPort port = {};
        bool clearsInput = false;
        bool clearsOutput = false;
        std::deque<QueuedSource> inputs = {};  // in the queue when the command was given
        std::deque<ImportedBuffer> outputs = {};
        uint64_t until = 0;  // for a drain: value of mTaken that ends it
    };

    // The newest source while the engine writes the frames of its interval, which are `factor`
    // interpolated frames and then the source itself.
    struct Job {
        Source source;
        uint32_t factor = 0;
        uint32_t next = 0;  // index of the next frame to write; at `factor` it is the source
    };

    // The next task of the engine thread: carry out a command, begin the interval of a source, or
    // write into an output buffer. An empty value ends the thread.
    using Work = std::variant<std::monostate, Command, QueuedSource, ImportedBuffer>;

    void give(Command command) EXCLUDES(mLock);
    void run() EXCLUDES(mLock);
    Work awaitWork() EXCLUDES(mLock);
    bool isDue(const Command& command) const REQUIRES(mLock);
    void obey(Command command);
    void begin(QueuedSource input);
    void write(ImportedBuffer output);
    void retire();
    void abandon();
    void giveBack(Source& source);
    void postInput(ImportedBuffer buffer);
    void postOutput(ImportedBuffer buffer);
    static Callback release(Callback::Kind kind, ImportedBuffer* buffer);
    void announce(const Command& command);
    uint32_t framesBefore(const ImportedBuffer& source) REQUIRES(mLock);
    uint32_t factorAt(uint64_t timestamp) EXCLUDES(mLock);

    // Each port has its own dispatcher, so that a client that is slow on one port does not delay
    // the other.
    const std::shared_ptr<CallbackDispatcher> mInputDispatcher;
    const std::shared_ptr<CallbackDispatcher> mOutputDispatcher;

    // Guards the queues and the control. It is held only for short operations on them, never while
    // a frame is written.
    std::mutex mLock;
    std::condition_variable mCond;
    std::deque<QueuedSource> mInputs GUARDED_BY(mLock);
    std::deque<ImportedBuffer> mOutputs GUARDED_BY(mLock);
    std::deque<Command> mCommands GUARDED_BY(mLock);
    FrcControl mFrc GUARDED_BY(mLock);
    // Time stamp and size of the source queued last. Empty at the start and after the input was
    // flushed.
    std::optional<std::pair<uint64_t, FrameSize>> mNewest GUARDED_BY(mLock);
    uint64_t mQueued GUARDED_BY(mLock) = 0;  // number of sources since the start
    uint64_t mTaken GUARDED_BY(mLock) = 0;   // number of these that have left mInputs
    bool mStopped GUARDED_BY(mLock) = false;

    // Only the engine thread uses these three.
    Renderer mRenderer;
    std::optional<Source> mReference;  // the source that precedes the job's
    std::optional<Job> mJob;

    Worker mWorker;
};

}  // namespace qoz::host::vppservice
