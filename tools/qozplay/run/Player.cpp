// SPDX-License-Identifier: Apache-2.0
#include "qozplay/run/Player.h"

#include <pthread.h>

#include <algorithm>
#include <new>
#include <thread>
#include <utility>

#include "qozplay/media/MediaReader.h"
#include "qozplay/media/Scene.h"
#include "qozplay/run/Outputs.h"
#include "qozplay/run/Simulator.h"
#include "qozplay/stream/Session.h"

namespace qozplay {
namespace {

constexpr uint64_t kSceneFrames = 120;  // length of the built-in scene by default
constexpr char kNoStandardOutput[] = "cannot write to standard output";

// Opens the input of one session: a clip, or the built-in scene.
std::unique_ptr<FrameSource> openSource(const Options& options, const StopRequest& stop) {
    const AVRational rate = options.rate.value_or(AVRational{30, 1});
    // With --truth, --frames counts the frames that are sent, and the scene has `step` as many.
    const uint64_t step = options.truth.value_or(1);
    if (!options.input.empty()) {
        return std::make_unique<MediaReader>(options.input, options.rawSize, rate, stop);
    }
    return std::make_unique<Scene>(
        options.sceneSize, rate, options.plan.frames ? *options.plan.frames * step : kSceneFrames);
}

// Describes the settings for the summary.
std::string settingsText(const Options& options) {
    std::string text =
        options.plan.aisOnly
            ? std::string("upscale 2x alone")
            : format("interp %u, upscale %sx, motion vectors %s", options.plan.interp,
                     kUpscaleRatios.at(options.plan.upscaleIndex).data(),
                     options.motionVectors ? "on" : "off");
    if (options.sessions > 1) text += format(", %u sessions", options.sessions);
    if (options.truth) text += format(", one frame of %u given", *options.truth);
    return text;
}

std::string inputText(const Options& options, const FrameSource& source) {
    const std::string name = options.input.empty()  ? "built-in scene"
                             : options.input == "-" ? "standard input"
                                                    : options.input;
    return name + " " + toText(source.info().size) + ", " + toText(source.info().rate) + " fps";
}

// One run of the player. The constructor opens the input and the outputs; run() runs each session
// on its own thread and reports the result. Everything else takes place on the calling thread.
class Player {
  public:
    Player(Options options, Console& console, const StopRequest& stop);

    // Carries out the run and returns the exit code. Must be called once.
    int run();

  private:
    using Sessions = std::vector<std::unique_ptr<Session>>;

    Sessions makeSessions(Simulator& simulator);
    void runSessions(Sessions& sessions);
    void awaitDescriptors();
    int conclude();

    Options mOptions;
    Console& mConsole;
    const StopRequest& mStop;
    std::vector<std::unique_ptr<FrameSource>> mSources;  // one for each session
    ReferenceScore* mReference = nullptr;                // with --truth, the first session's source
    std::optional<Outputs> mOutputs;
    WarmUp mWarmUp;
    RunStats mStats;
};

// Opens the inputs, then the outputs, which need the properties of the clip. A clip that is too
// small for motion vectors is processed without them.
Player::Player(Options options, Console& console, const StopRequest& stop)
    : mOptions(std::move(options)), mConsole(console), mStop(stop), mWarmUp(mOptions.sessions) {
    for (uint32_t i = 0; i < mOptions.sessions; ++i)
        mSources.push_back(openSource(mOptions, mStop));
    std::unique_ptr<FrameSource>& first = mSources[0];
    if (isThin(first->info().size)) mOptions.motionVectors = false;
    if (mOptions.truth) {
        auto held = std::make_unique<ReferenceScore>(std::move(first), *mOptions.truth);
        mReference = held.get();
        first = std::move(held);
    }
    mOutputs.emplace(mOptions, *first, mStop);
    mStats.budget = mOptions.budget;
    mStats.input = inputText(mOptions, *first);
    mStats.settings = settingsText(mOptions);
}

int Player::run() {
    // Declared before the simulator, so that the service ends first. Until then it may still call
    // back a session that has failed.
    Sessions sessions;
    Simulator simulator(mOptions, mConsole);
    sessions = makeSessions(simulator);
    runSessions(sessions);
    mStats.faultsFired = simulator.faultsFired();
    mStats.unfiredFaults = simulator.unfiredFaults();
    if (mReference != nullptr) mStats.truth = mReference->scores();
    mOutputs->save(&mStats, simulator.folder());
    return conclude();
}

// Creates the sessions, whose components read the simulator's properties at once. All sessions
// process the same input; the outputs receive the frames of the first one, and only its component
// makes a frame dump.
Player::Sessions Player::makeSessions(Simulator& simulator) {
    Sessions sessions;
    for (uint32_t i = 0; i < mOptions.sessions; ++i) {
        std::vector<FrameSink*> sinks;
        SessionSurroundings around{mWarmUp, mStop, [&] { return simulator.serviceDied(); }, {}};
        if (mOutputs->vectorsOf()) simulator.dump(i == 0 ? mOutputs->vectorsOf() : std::nullopt);
        if (i == 0) {
            sinks = mOutputs->sinks();
            if (mReference != nullptr) sinks.push_back(mReference);
            const auto length =
                mOptions.plan.frames ? mOptions.plan.frames : mSources[0]->info().length;
            around.progress = [this, length](uint64_t in, uint64_t out, size_t outstanding) {
                mConsole.progress({in, out, outstanding, length});
            };
        }
        SessionPlan plan = mOptions.plan;
        plan.name = format("qozplay%u", i);
        plan.diagnostics = mOptions.log.wantsDiagnostics();
        try {
            sessions.push_back(std::make_unique<Session>(std::move(plan), *mSources[i],
                                                         std::move(sinks), std::move(around)));
        } catch (const std::logic_error&) {  // the component cannot parse a numeric property
            throw BadInput(
                "--prop: the value of vendor.qoz.log.msg, vendor.qoz.maxw or "
                "vendor.qoz.maxh is not a number");
        }
    }
    return sessions;
}

// Runs every session on its own thread and waits until all have ended. A session whose thread
// cannot be created counts as failed.
void Player::runSessions(Sessions& sessions) {
    mStats.sessions.resize(sessions.size());
    mStats.descriptorsBefore = qoz::host::openDescriptors();
    std::vector<std::thread> threads;
    const auto work = [&](size_t i) {
        // The trace shows this name.
        pthread_setname_np(pthread_self(), format("qozplay%zu", i).c_str());
        mStats.sessions[i] = sessions[i]->run();
    };
    for (size_t i = 0; i < sessions.size(); ++i) {
        try {
            threads.emplace_back(work, i);
        } catch (const std::system_error& error) {
            mStats.sessions[i].failure = plainly(error);
        }
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    mConsole.endProgress();
    mStats.lateBuffers = mWarmUp.since();
    awaitDescriptors();
}

// Waits up to a second until no more descriptors are open than before the sessions: the service
// closes its descriptors on its own threads, shortly after the last call.
void Player::awaitDescriptors() {
    const Clock::time_point end = Clock::now() + std::chrono::seconds(1);
    do {
        mStats.descriptorsAfter = qoz::host::openDescriptors();
        if (mStats.descriptorsAfter <= mStats.descriptorsBefore) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    } while (Clock::now() < end);
}

// Reports the figures and the failures, and chooses the exit code. If the clip goes to standard
// output, the figures go to standard error.
int Player::conclude() {
    std::string text = summary(mStats);
    std::vector<std::string> failed = failures(mStats);
    if (mOptions.outputIsPipe()) {
        text.pop_back();  // report() ends the line itself
        mConsole.report(text);
    } else if (!mConsole.print(text)) {
        failed.emplace_back(kNoStandardOutput);
    }
    for (const std::string& failure : failed) {
        mConsole.report("qozplay: " + failure);
    }
    if (mStop.requested()) return 128 + mStop.signal();
    const bool badInput = std::ranges::any_of(mStats.sessions, &SessionStats::badInput);
    if (badInput) return 2;
    return failed.empty() ? 0 : 1;
}

// Reports the exception that is being handled and returns the exit code for it. After a stop
// request the exception is a consequence of the stop, and is not reported.
int fail(Console& console, const StopRequest& stop) {
    std::string why;
    int code = 1;
    try {
        throw;
    } catch (const BadInput& error) {
        why = error.what();
        code = 2;
    } catch (const std::exception& error) {
        why = plainly(error);
    }
    if (stop.requested()) return 128 + stop.signal();
    console.report("qozplay: " + why);
    return code;
}

}  // namespace

int play(int argc, const char* const argv[], Console& console, const StopRequest& stop) {
    av_log_set_level(AV_LOG_QUIET);  // errors are reported from their return values
    try {
        std::string answer;
        Options options = parseOptions(argc, argv, &answer);
        if (!answer.empty()) {
            if (!console.print(answer)) throw SessionFailed(kNoStandardOutput);
            return 0;
        }
        return Player(std::move(options), console, stop).run();
    } catch (...) {
        return fail(console, stop);
    }
}

}  // namespace qozplay
