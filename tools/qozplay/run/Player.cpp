#include "qozplay/run/Player.h"

#include "qozplay/media/Scene.h"
#include "qozplay/media/SubsampledSource.h"
#include "qozplay/media/Y4mWriter.h"
#include "qozplay/report/Sheet.h"
#include "qozplay/report/VectorPicture.h"
#include "qozplay/run/Simulator.h"
#include "qozplay/stream/Session.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>
#include <utility>

#include <pthread.h>

namespace qozplay {
namespace {

constexpr uint64_t kSceneFrames = 120;
constexpr std::array kUpscale{"1x", "1.5x", "2x"};

std::unique_ptr<FrameSource> openSource(const Options& options) {
    const Rate rate = options.rate.value_or(Rate{});
    const uint64_t step = options.truth.value_or(1);  // --frames counts those that are given
    if (options.input.empty()) {
        return std::make_unique<Scene>(options.sceneSize, rate,
                                       options.frames ? *options.frames * step : kSceneFrames);
    }
    if (options.rawSize) return openRaw(options.input, *options.rawSize, rate);
    return openY4m(options.input);
}

void keepInput(const std::string& input, const std::string& path) {
    std::error_code ignored;  // one of the two does not exist: then they are not the same
    if (!std::filesystem::equivalent(input, path, ignored)) return;
    throw BadInput(path + " is the input and would be overwritten");
}

// Finds out before the work, not after it.
void requireWritable(const std::string& path) {
    if (path.empty()) return;
    errno = 0;
    if (!std::ofstream(path)) throw BadInput("cannot write " + path + ": " + std::strerror(errno));
}

Rate outputRate(const Options& options, Rate rate) {
    return {rate.num * (options.interp + 1), rate.den};
}

std::string settingsText(const Options& options) {
    std::string text = options.aisOnly ? std::string("upscale 2x alone")
                                       : format("interp %u, upscale %s, motion vectors %s",
                                                options.interp, kUpscale.at(options.upscaleIndex),
                                                options.motionVectors ? "on" : "off");
    if (options.max) text += ", sources of at most " + toText(*options.max);
    if (options.sessions > 1) text += format(", %u sessions", options.sessions);
    if (options.truth) text += format(", one frame of %u given", *options.truth);
    return text;
}

std::string inputText(const Options& options, const FrameSource& source) {
    const std::string name = options.input.empty()  ? "built-in scene"
                             : options.input == "-" ? "standard input"
                                                    : options.input;
    return name + " " + toText(source.size()) + ", " + toText(source.rate()) + " fps";
}

// The one to be shown in pictures, or none when the length of the clip is not known.
std::optional<uint64_t> middleFrame(const Options& options, const FrameSource& source) {
    if (options.sheetAt) return options.sheetAt;
    std::optional<uint64_t> length = source.length();
    if (options.frames) length = std::min(*options.frames, length.value_or(*options.frames));
    if (!length) return std::nullopt;
    return *length / 2;
}

// The intervals around the middle.
std::optional<std::pair<uint64_t, uint64_t>> sheetWindow(const Options& options,
                                                         const FrameSource& source) {
    const std::optional<uint64_t> middle = middleFrame(options, source);
    if (!middle) return std::nullopt;
    const uint64_t first = *middle - std::min<uint64_t>(*middle, Sheet::kIntervals / 2);
    const auto at = [&](uint64_t frame) {
        return static_cast<uint64_t>(timestampOf(source.rate(), frame) / 1000);
    };
    return std::make_pair(at(first), at(first + Sheet::kIntervals));
}

std::string sheetTitle(const Options& options, const FrameSource& source) {
    return format("QOZPLAY   %s   %s > %s FPS   UPSCALE %s", toText(source.size()).c_str(),
                  toText(source.rate()).c_str(), toText(outputRate(options, source.rate())).c_str(),
                  options.aisOnly ? "2x" : kUpscale.at(options.upscaleIndex));
}

std::string sessionName(uint32_t session) {
    return format("qozplay%u", session);
}

class Player {
  public:
    Player(Options options, Console& console);

    // The exit code.
    int run();

  private:
    void holdOut();
    void openSinks();
    std::vector<FrameSink*> sinks() const;
    void runSessions(std::vector<std::unique_ptr<Session>>& sessions, const Simulator& simulator);
    void awaitDescriptors();
    template <typename Work>
    void attempt(Work work);
    Sheet::Psnr psnr() const;
    void save(Simulator& simulator);
    std::string outputText() const;
    int conclude();

    const Options mOptions;
    Console& mConsole;
    std::vector<std::unique_ptr<FrameSource>> mSources;  // one a session
    std::unique_ptr<Y4mWriter> mWriter;
    std::unique_ptr<ReferenceScore> mReference;
    std::unique_ptr<Sheet> mSheet;
    std::unique_ptr<VectorPicture> mVectors;
    RunStats mStats;
};

Player::Player(Options options, Console& console)
    : mOptions(std::move(options)), mConsole(console) {
    for (uint32_t i = 0; i < mOptions.sessions; ++i) {
        mSources.push_back(openSource(mOptions));
    }
    for (const std::string& path :
         {mOptions.output, mOptions.sheet, mOptions.vectors, mOptions.trace, mOptions.stats}) {
        keepInput(mOptions.input, path);
    }
    for (const std::string& path :
         {mOptions.sheet, mOptions.vectors, mOptions.trace, mOptions.stats}) {
        requireWritable(path);
    }
    if (mOptions.truth) holdOut();
    openSinks();
    mStats.budget = mOptions.budget;
    mStats.input = inputText(mOptions, *mSources[0]);
    mStats.settings = settingsText(mOptions);
}

void Player::holdOut() {
    std::unique_ptr<FrameSource>& clip = mSources[0];
    mReference = std::make_unique<ReferenceScore>(clip->size(), clip->rate(), *mOptions.truth);
    clip = std::make_unique<SubsampledSource>(std::move(clip), *mOptions.truth, *mReference);
}

void Player::openSinks() {
    const FrameSource& source = *mSources[0];
    if (!mOptions.output.empty()) {
        Y4mHeader header;
        header.rate = outputRate(mOptions, source.rate());
        mWriter = std::make_unique<Y4mWriter>(mOptions.output, header);
    }
    if (!mOptions.sheet.empty()) {
        mSheet =
            std::make_unique<Sheet>(sheetTitle(mOptions, source), sheetWindow(mOptions, source));
    }
    if (!mOptions.vectors.empty()) {
        std::unique_ptr<FrameSource> clip = openSource(mOptions);
        const uint64_t frame = middleFrame(mOptions, *clip).value_or(0);
        mVectors = std::make_unique<VectorPicture>(mOptions, std::move(clip), frame);
    }
}

std::vector<FrameSink*> Player::sinks() const {
    std::vector<FrameSink*> all{mWriter.get(), mReference.get(), mSheet.get()};
    std::erase(all, nullptr);
    return all;
}

int Player::run() {
    // The service goes first: until then a session that ended badly may still be called back.
    std::vector<std::unique_ptr<Session>> sessions;
    Simulator simulator(mOptions, mConsole);
    runSessions(sessions, simulator);
    mStats.faultsFired = simulator.faultsFired();
    if (mReference != nullptr) mStats.truth = mReference->scores();
    save(simulator);
    return conclude();
}

void Player::runSessions(std::vector<std::unique_ptr<Session>>& sessions,
                         const Simulator& simulator) {
    WarmUp warmUp(mOptions.sessions);
    mStats.sessions.resize(mOptions.sessions);
    for (uint32_t i = 0; i < mOptions.sessions; ++i) {
        sessions.push_back(std::make_unique<Session>(
            mOptions, sessionName(i), *mSources[i], i == 0 ? sinks() : std::vector<FrameSink*>(),
            warmUp, [&simulator] { return simulator.serviceDied(); },
            i == 0 ? &mConsole : nullptr));
    }
    mStats.descriptorsBefore = qoz::host::openDescriptors();
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < mOptions.sessions; ++i) {
        threads.emplace_back([&, i] {
            pthread_setname_np(pthread_self(), sessionName(i).c_str());  // in the trace, too
            mStats.sessions[i] = sessions[i]->run();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    mConsole.endProgress();
    mStats.lateBuffers = warmUp.since();
    awaitDescriptors();
}

// The service closes its own on its own threads, some moments after the last call.
void Player::awaitDescriptors() {
    const Clock::time_point end = Clock::now() + std::chrono::seconds(1);
    do {
        mStats.descriptorsAfter = qoz::host::openDescriptors();
        if (mStats.descriptorsAfter <= mStats.descriptorsBefore) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    } while (Clock::now() < end);
}

// What cannot be saved is one more finding; the rest is saved all the same.
template <typename Work>
void Player::attempt(Work work) {
    try {
        work();
    } catch (const SessionFailed& error) {
        mStats.failures.emplace_back(error.what());
    }
}

// Of the frames that have been scored.
Sheet::Psnr Player::psnr() const {
    Sheet::Psnr known;
    if (!mStats.truth) return known;
    for (const Score& score : mStats.truth->frames) {
        known[score.timestamp] = score.interpolated.psnr;
    }
    return known;
}

void Player::save(Simulator& simulator) {
    if (mWriter != nullptr) {
        attempt([&] { mWriter->finish(); });
        mStats.output = outputText();
    }
    if (!mOptions.trace.empty()) attempt([&] { simulator.saveTrace(mOptions.trace); });
    if (mSheet != nullptr) attempt([&] { mSheet->save(mOptions.sheet, psnr()); });
    if (mVectors != nullptr) attempt([&] { mVectors->save(simulator); });
    if (mOptions.stats.empty()) return;
    if (!(std::ofstream(mOptions.stats) << toJson(mStats).dump(2) << '\n')) {
        mStats.failures.push_back("cannot write " + mOptions.stats);
    }
}

std::string Player::outputText() const {
    std::string text = format("%s, %llu frames, %s fps", mOptions.output.c_str(),
                              static_cast<unsigned long long>(mWriter->frames()),
                              toText(outputRate(mOptions, mSources[0]->rate())).c_str());
    const bool paced =
        std::none_of(mOptions.changes.begin(), mOptions.changes.end(),
                     [](const Change& change) { return change.kind == Change::Kind::Interp; });
    if (!paced) text += format(", timed for interp %u", mOptions.interp);
    if (mWriter->scaled() != 0) {
        text += format(", %llu of them scaled to the size of the first",
                       static_cast<unsigned long long>(mWriter->scaled()));
    }
    return text;
}

int Player::conclude() {
    std::string text = summary(mStats);
    if (mOptions.outputIsPipe()) {
        text.pop_back();  // report() ends the line itself
        mConsole.report(text);
    } else {
        mConsole.print(text);
    }
    const std::vector<std::string> off = failures(mStats);
    for (const std::string& finding : off) {
        mConsole.report("qozplay: " + finding);
    }
    const bool badInput = std::any_of(mStats.sessions.begin(), mStats.sessions.end(),
                                      [](const SessionStats& stats) { return stats.badInput; });
    if (badInput) return 2;
    return off.empty() ? 0 : 1;
}

}  // namespace

int play(int argc, const char* const argv[], Console& console) {
    try {
        std::string help;
        Options options = parseOptions(argc, argv, &help);
        if (!help.empty()) {
            console.print(help);
            return 0;
        }
        return Player(std::move(options), console).run();
    } catch (const BadInput& error) {
        console.report(std::string("qozplay: ") + error.what());
        return 2;
    } catch (const SessionFailed& error) {
        console.report(std::string("qozplay: ") + error.what());
        return 1;
    }
}

}  // namespace qozplay
