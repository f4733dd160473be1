// One session from beginning to end: enable, config, frame after frame, flush, disable.
#pragma once

#include "qozplay/cli/Console.h"
#include "qozplay/cli/Options.h"
#include "qozplay/media/FrameSource.h"
#include "qozplay/report/Stats.h"
#include "qozplay/report/Verifier.h"
#include "qozplay/stream/Stream.h"
#include "qozplay/stream/WarmUp.h"

#include <functional>
#include <memory>

namespace qozplay {

class Session {
  public:
    // `console` shows the progress of this session; null: none.
    Session(const Options& options, std::string name, FrameSource& source,
            std::vector<FrameSink*> sinks, WarmUp& warmUp, std::function<bool()> serviceDied,
            Console* console);

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
    bool fill(int32_t slot);
    void flush(const Change& change);
    void sendSource(uint64_t frame, int32_t slot);
    void finish();
    void collect();
    void verify();
    std::vector<FrameSink*> withVerifier(std::vector<FrameSink*> sinks);
    void logState();
    android::ConfigParams paramsFor(const Settings& settings) const;

    const Options& mOptions;
    const std::string mName;
    FrameSource& mSource;
    WarmUp& mWarmUp;
    Console* const mConsole;
    ChangeSchedule mSchedule;
    Settings mSettings;  // in force
    Settings mWanted;    // from the next frame on
    std::vector<uint8_t> mUnscaled;
    ReturnQueue mReturns;
    std::shared_ptr<android::VppComponent> mVpp;
    std::optional<Verifier> mVerifier;  // none: nobody asked
    Stream mStream;
    SessionStats mStats;
    bool mStateLogged = false;
};

}  // namespace qozplay
