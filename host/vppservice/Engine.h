// SPDX-License-Identifier: Apache-2.0
// One open session at work: the queues of both ports, and the thread that turns sources into
// outputs.
//
//   queueInput ──> mInputs ──┐                       ┌──> output dispatcher ──> client
//   queueOutput ─> mOutputs ─┼─> engine thread ──────┤
//   flush, ... ──> mCommands ┘                       └──> input dispatcher ───> client
//
// Commands overtake frames but never interrupt one that is being written. What a command returns
// is taken out of the queues when the command is given, so that buffers queued after it stay. The
// factor of an interval is decided when the source that closes it is queued: control that comes
// later never reaches back.
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

// Owned by its session, and by its own thread while that runs. The public operations are called on
// the threads of the session's calls, and none of them waits but stop(). Nothing is called with
// mLock held.
class Engine : public std::enable_shared_from_this<Engine> {
  public:
    Engine(const std::shared_ptr<vpp::IVppCallbacks>& callbacks,
           const std::shared_ptr<FaultInjector>& faults);

    // Throws std::system_error when there is no thread to be had; may be tried again.
    void start();

    // Drops everything, ends the threads and lets go of the client's object, as
    // CallbackDispatcher::stop().
    void stop() EXCLUDES(mLock);

    VppError setFrc(const std::vector<vpp::VppCtrlFrcSegment>& segments) EXCLUDES(mLock);
    void clearFrc() EXCLUDES(mLock);

    void queueInput(ImportedBuffer buffer) EXCLUDES(mLock);
    void queueOutput(ImportedBuffer buffer) EXCLUDES(mLock);

    // Each is answered by its event. A flush or a reconfiguration first sends back, unfilled, all
    // that is held of its ports, and the next source starts afresh.
    void flush(VppPort port, Answer answer);
    void reconfigure(Answer answer);
    // Finishes the sources queued so far, or as many as the queued outputs allow.
    void drain(Answer answer);

  private:
    // A queued source, and how many frames go between it and the source queued before it.
    struct QueuedSource {
        ImportedBuffer buffer;
        uint32_t between = 0;
    };

    struct Command {
        Callback::Kind event;
        Answer answer;
        VppPort port = {};
        bool clearsInput = false;
        bool clearsOutput = false;
        std::deque<QueuedSource> inputs = {};  // held when the command was given
        std::deque<ImportedBuffer> outputs = {};
        uint64_t until = 0;  // sources taken up, for a drain
    };

    // The newest source, while its interval is being filled.
    struct Job {
        Source source;
        uint32_t factor = 0;
        uint32_t next = 0;  // index into the interval: `factor` frames in between, then the source
    };

    // What the engine thread does next, out of its queue: obey a command, begin an interval with a
    // source, write an output; nothing: end.
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
    void announce(const Command& command);
    uint32_t framesBefore(const ImportedBuffer& source) REQUIRES(mLock);
    uint32_t factorAt(uint64_t timestamp) EXCLUDES(mLock);

    const std::shared_ptr<CallbackDispatcher> mInputDispatcher;
    const std::shared_ptr<CallbackDispatcher> mOutputDispatcher;

    std::mutex mLock;
    std::condition_variable mCond;
    std::deque<QueuedSource> mInputs GUARDED_BY(mLock);
    std::deque<ImportedBuffer> mOutputs GUARDED_BY(mLock);
    std::deque<Command> mCommands GUARDED_BY(mLock);
    FrcControl mFrc GUARDED_BY(mLock);
    // Time and size of the source queued last; none after what begins afresh.
    std::optional<std::pair<uint64_t, FrameSize>> mNewest GUARDED_BY(mLock);
    uint64_t mQueued GUARDED_BY(mLock) = 0;  // sources, ever
    uint64_t mTaken GUARDED_BY(mLock) = 0;   // of these, no longer in mInputs
    bool mStopped GUARDED_BY(mLock) = false;

    // The engine thread's own.
    Renderer mRenderer;
    std::optional<Source> mReference;  // the source before the job's
    std::optional<Job> mJob;

    Worker mWorker;
};

}  // namespace qoz::host::vppservice
