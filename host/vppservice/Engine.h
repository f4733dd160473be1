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

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "host/vppservice/CallbackDispatcher.h"
#include "host/vppservice/FrcControl.h"
#include "host/vppservice/ImportedBuffer.h"
#include "host/vppservice/Renderer.h"

namespace qoz::host::vppservice {

class Engine : public std::enable_shared_from_this<Engine> {
  public:
    Engine(const std::shared_ptr<vpp::IVppCallbacks>& callbacks,
           const std::shared_ptr<FaultInjector>& faults);

    // Throws std::system_error when there is no thread to be had; may be tried again.
    void start();

    // Drops everything, ends the threads and lets go of the client's object, as
    // CallbackDispatcher::stop().
    void stop();

    VppError setFrc(const std::vector<vpp::VppCtrlFrcSegment>& segments);
    void clearFrc();

    void queueInput(ImportedBuffer buffer);
    void queueOutput(ImportedBuffer buffer);

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

    enum class Step { Stop, Obey, Begin, Write };

    void give(Command command);
    void run();
    Step awaitStep(std::unique_lock<std::mutex>& lock);
    bool isDue(const Command& command) const;
    void obey(Command command);
    void begin(QueuedSource input);
    void write(ImportedBuffer output);
    void retire();
    void abandon();
    void giveBack(Source& source);
    void postInput(ImportedBuffer buffer);
    void postOutput(ImportedBuffer buffer);
    void announce(const Command& command);
    uint32_t framesBefore(const ImportedBuffer& source);
    uint32_t factorAt(uint64_t timestamp);

    const std::shared_ptr<CallbackDispatcher> mInputDispatcher;
    const std::shared_ptr<CallbackDispatcher> mOutputDispatcher;

    std::mutex mLock;
    std::condition_variable mCond;
    // Guarded by mLock.
    std::deque<QueuedSource> mInputs;
    std::deque<ImportedBuffer> mOutputs;
    std::deque<Command> mCommands;
    FrcControl mFrc;
    // Time and size of the source queued last; none after what begins afresh.
    std::optional<std::pair<uint64_t, FrameSize>> mNewest;
    uint64_t mQueued = 0;  // sources, ever
    uint64_t mTaken = 0;   // of these, no longer in mInputs
    bool mStopped = false;

    // The engine thread's own.
    Renderer mRenderer;
    std::optional<Source> mReference;  // the source before the job's
    std::optional<Job> mJob;

    Worker mWorker;
};

}  // namespace qoz::host::vppservice
