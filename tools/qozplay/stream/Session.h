// SPDX-License-Identifier: Apache-2.0
// One session of the player with one component.
#pragma once

#include <functional>
#include <memory>

#include "qozplay/media/Frames.h"
#include "qozplay/media/StopRequest.h"
#include "qozplay/report/Stats.h"
#include "qozplay/report/Verifier.h"
#include "qozplay/stream/Stream.h"
#include "qozplay/stream/WarmUp.h"

namespace qozplay {

// References to the objects that the sessions of a run share. Every session calls the functions on
// its own thread.
struct SessionSurroundings {
    WarmUp& warmUp;
    const StopRequest& stop;
    std::function<bool()> serviceDied;
    // Called after each source frame with the numbers of source frames sent, of output frames
    // received and of outstanding buffers. May be empty.
    std::function<void(uint64_t in, uint64_t out, size_t outstanding)> progress;
};

// Runs a session from beginning to end: enables and configures the component, sends source frames,
// carries out the changes of the plan, flushes and disables. run() takes place on the session's own
// thread. The component's callbacks run on other threads and only add to the client's ReturnQueue,
// so the session itself needs no lock.
class Session {
  public:
    // Creates the component, which reads the system properties now. The source, the sinks and the
    // referenced objects must exist for longer than the session.
    Session(SessionPlan plan, FrameSource& source, std::vector<FrameSink*> sinks,
            SessionSurroundings surroundings);

    // Runs the session; must be called once. Failures are reported in the result, not by an
    // exception. The object must exist until the service has ended, because after a failure the
    // service may still call back.
    SessionStats run();

  private:
    struct Settings {
        uint32_t interp;
        uint32_t upscaleIndex;
        Size size;
        bool operator==(const Settings&) const = default;
    };

    template <typename Work>
    void attempt(Work work);
    void start();
    void feed();
    void drain();
    bool feedFrame(uint64_t frame);
    std::optional<int64_t> fill(int32_t slot);
    void flush(const Change& change);
    void sendSource(uint64_t frame, int32_t slot, int64_t timestamp);
    void finish();
    void collect();
    void nameCause();
    std::vector<FrameSink*> withVerifier(std::vector<FrameSink*> sinks);
    void logState();
    android::ConfigParams paramsFor(const Settings& settings) const;

    SessionPlan mPlan;  // its changes are removed when they are due
    const SessionSurroundings mAround;
    FrameSource& mSource;
    Settings mSettings;                      // of the last frame that the component took
    Settings mWanted;                        // of the next frame
    std::vector<uint8_t> mUnscaled;          // the pixels of a frame before it is scaled
    std::optional<PictureSummary> mPicture;  // of the next frame, for the verifier
    std::optional<Verifier> mVerifier;       // only with --verify
    Stream mStream;
    LiveClient& mClient;  // a member of mStream
    SessionStats mStats;
    bool mStateLogged = false;
};

}  // namespace qozplay
