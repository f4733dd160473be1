// SPDX-License-Identifier: Apache-2.0
// One session from beginning to end: enable, config, frame after frame, flush, disable. Each runs
// on a thread of its own; only the component's callbacks come on others, and wait in the client's
// queue.
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

// What it shares with the other sessions of the run.
struct SessionSurroundings {
    WarmUp& warmUp;
    const StopRequest& stop;
    std::function<bool()> serviceDied;
    // Told of frames in, frames out and buffers outstanding after each frame; empty: nobody is.
    std::function<void(uint64_t in, uint64_t out, size_t outstanding)> progress;
};

class Session {
  public:
    // Makes its component here, with the properties that are in force. The source, the sinks and
    // the surroundings outlive it.
    Session(SessionPlan plan, FrameSource& source, std::vector<FrameSink*> sinks,
            SessionSurroundings surroundings);

    // To be run once. Failures are in the result. The object must outlive the service: a session
    // that ended badly may still call it.
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

    SessionPlan mPlan;  // less the changes that were due
    const SessionSurroundings mAround;
    FrameSource& mSource;
    Settings mSettings;  // in force
    Settings mWanted;    // from the next frame on
    std::vector<uint8_t> mUnscaled;
    std::optional<PictureSummary> mPicture;  // of the frame to be sent, for the verifier
    std::optional<Verifier> mVerifier;       // none: nobody asked
    Stream mStream;
    LiveClient& mClient;  // the stream's
    SessionStats mStats;
    bool mStateLogged = false;
};

}  // namespace qozplay
