#include "Client.h"

#include "ComponentDump.h"

#include <libyuv.h>

#include <utility>

namespace qozplay {
namespace {

constexpr uint32_t kModeFrc = 1;
constexpr uint32_t kModeAisOnly = 2;

SessionFailed stalled(const Stream& stream) {
    if (stream.serviceDied()) {
        return SessionFailed(format("the service died, buffers still lent: %zu", stream.lent()));
    }
    return SessionFailed(format("nothing moved for %lld s, buffers still lent: %zu",
                                static_cast<long long>(Stream::kPatience.count()), stream.lent()));
}

}  // namespace

const char* nameOf(android::VppComponent::status state) {
    switch (state) {
        case android::VppComponent::UNINIT:
            return "UNINIT";
        case android::VppComponent::INIT:
            return "INIT";
        case android::VppComponent::IDLE:
            return "IDLE";
        case android::VppComponent::ACTIVE:
            return "ACTIVE";
        case android::VppComponent::PENDING:
            return "PENDING";
        case android::VppComponent::ERROR:
            return "ERROR";
    }
    return "unknown";
}

Client::Client(const Options& options, std::string name, FrameSource& source,
               std::vector<FrameSink*> sinks, WarmUp& warmUp, std::function<bool()> serviceDied,
               Console* console)
    : mOptions(options),
      mName(std::move(name)),
      mSource(source),
      mWarmUp(warmUp),
      mConsole(console),
      mScript(options.changes),
      mSettings{options.interp, options.upscaleIndex, source.size()},
      mWanted(mSettings),
      mMailbox(mName),
      mVpp(std::make_shared<android::VppComponent>()),
      mStream(mVpp, mMailbox, mGauges, withVerifier(std::move(sinks)), std::move(serviceDied)) {}

std::vector<FrameSink*> Client::withVerifier(std::vector<FrameSink*> sinks) {
    if (mOptions.verify) sinks.push_back(&mVerifier.emplace());
    return sinks;
}

SessionStats Client::run() {
    attempt([&] {
        start();
        feed();
    });
    // A damaged clip is no reason to throw away the frames before the damage.
    if (mStats.failure.empty() || mStats.badInput) attempt([&] { drain(); });
    attempt([&] { finish(); });
    collect();
    return mStats;
}

// Keeps the first failure: what follows is most often its consequence.
template <typename Work>
void Client::attempt(Work work) {
    try {
        work();
    } catch (const BadInput& error) {
        if (mStats.failure.empty()) mStats.badInput = true;
        if (mStats.failure.empty()) mStats.failure = error.what();
    } catch (const SessionFailed& error) {
        logState();
        if (mStats.failure.empty()) mStats.failure = error.what();
    }
}

// What the component was doing when things went wrong first; whoever turns the log on sees it.
void Client::logState() {
    if (!std::exchange(mStateLogged, true)) logDump(*mVpp);
}

android::ConfigParams Client::paramsFor(const Settings& settings) const {
    return {mOptions.aisOnly ? kModeAisOnly : kModeFrc, 0, settings.interp, settings.upscaleIndex};
}

void Client::start() {
    if (!mVpp->enable(mName, &mMailbox, mOptions.log.wantsDiagnostics())) {
        throw SessionFailed("the session could not be enabled");
    }
    mVpp->config(mSettings.size.width, mSettings.size.height, kRgba, paramsFor(mSettings), true);
    if (mVpp->state() != android::VppComponent::ACTIVE) {
        throw SessionFailed(
            format("the session did not start, its state is %s", nameOf(mVpp->state())));
    }
    mStream.follow();
    mStats.firstOutput = mStream.outputSize();
}

void Client::feed() {
    for (uint64_t frame = 0; frame != mOptions.frames; ++frame) {
        if (!feedFrame(frame)) break;
        if (frame + 1 == WarmUp::kFrames) mWarmUp.passed();
        if (mConsole == nullptr) continue;
        mConsole->progress(frame + 1, mStream.framesOut(), mStream.lent());
    }
}

void Client::drain() {
    if (!mStream.awaitFrames()) throw stalled(mStream);
}

bool Client::feedFrame(uint64_t frame) {
    if (!mStream.awaitRoom()) throw stalled(mStream);
    if (mStream.stopped() || mGauges.stopRequested()) return false;
    std::vector<Change> due = mScript.due(frame);
    for (const Change& change : due) {
        if (change.kind == Change::Kind::Size) mWanted.size = change.size;
        if (change.kind == Change::Kind::Interp) mWanted.interp = change.value;
        if (change.kind == Change::Kind::Upscale) mWanted.upscaleIndex = change.value;
    }
    const int32_t slot = mStream.takeSource(mWanted.size);
    if (!fill(slot)) {
        mStream.putBackSource(slot);
        mStats.notReached = std::move(due);
        return false;
    }
    for (const Change& change : due) {
        if (change.kind == Change::Kind::Flush) flush(change);
    }
    sendSource(frame, slot);
    for (const Change& change : due) {
        if (change.kind == Change::Kind::Flush) continue;
        mStats.changes.push_back({change, mStream.blocked().back()});
    }
    mStream.look();
    mStream.lend();
    return true;
}

// False: the clip is at its end.
bool Client::fill(int32_t slot) {
    const Mapping pixels(mStream.source(slot), android::GraphicBuffer::USAGE_SW_WRITE_OFTEN);
    const size_t stride = pixels.stride() * 4;
    const Size clip = mSource.size();
    if (pixels.size() == clip) return mSource.next(pixels.data(), stride);
    const size_t clipStride = size_t{4} * clip.width;
    mUnscaled.resize(clipStride * clip.height);
    if (!mSource.next(mUnscaled.data(), clipStride)) return false;
    libyuv::ARGBScale(mUnscaled.data(), static_cast<int>(clipStride), static_cast<int>(clip.width),
                      static_cast<int>(clip.height), pixels.data(), static_cast<int>(stride),
                      static_cast<int>(pixels.size().width), static_cast<int>(pixels.size().height),
                      libyuv::kFilterBox);
    return true;
}

void Client::flush(const Change& change) {
    const Clock::time_point start = Clock::now();
    mVpp->flushsync();
    mStats.changes.push_back({change, milliseconds(Clock::now() - start)});
    mStream.look();
    mStream.tracker().flushed();
    if (mVerifier) mVerifier->interrupted("flush");
    if (mVpp->state() == android::VppComponent::ERROR) {
        throw SessionFailed(format("the flush at frame %llu failed",
                                   static_cast<unsigned long long>(change.frame)));
    }
}

// A new size or ratio makes the component flush the service, so what is under way comes out first.
// A new ratio does so after the frame that carries it has been queued: that one may be cleared
// away.
void Client::sendSource(uint64_t frame, int32_t slot) {
    const bool resized = mWanted.size != mSettings.size;
    const bool rescaled = mWanted.upscaleIndex != mSettings.upscaleIndex;
    const bool carries = rescaled || mWanted.interp != mSettings.interp;
    if (resized || rescaled) drain();
    mStream.lend();

    std::optional<android::ConfigParams> config;
    if (carries) config = paramsFor(mWanted);
    if (mVerifier && resized) mVerifier->interrupted("size change");
    const int64_t timestamp = timestampOf(mSource.rate(), frame);
    const bool taken = mStream.send(slot, timestamp, config);
    if (mMailbox.takeConfigChanged() || resized) mStream.follow();
    if (!taken) {  // the next frame carries the settings again
        if (mVerifier) mVerifier->refused();
        return;
    }
    const uint64_t microseconds = static_cast<uint64_t>(timestamp) / 1000;
    if (mVerifier) mVerifier->taken(frame, microseconds, mSettings.interp);
    mSettings = mWanted;
    if (!rescaled) return;
    mStream.tracker().flushed();
    if (mVerifier) mVerifier->interrupted("ratio change");
}

// Works after any failure: whatever is still lent is asked back, unless there is nobody to ask.
void Client::finish() {
    if (mStream.serviceDied()) {
        mStream.look();
        logState();
        mVpp->disable();
        throw stalled(mStream);
    }
    mVpp->flushsync();
    const bool flushed = mVpp->state() != android::VppComponent::ERROR;
    const bool home = mStream.awaitHome();
    if (!flushed || !home) logState();
    mVpp->disable();
    if (!flushed) throw SessionFailed("the flush at the end failed");
    if (!home) throw stalled(mStream);
}

void Client::collect() {
    if (mStream.stopped()) mStream.tracker().flushed();
    mStats.frames = mStream.tracker().finish();
    mStats.blocked = mStream.blocked();
    mStats.seconds = mStream.seconds();
    mStats.lastOutput = mStream.outputSize();
    mStats.ledger = mMailbox.ledger();
    if (mVerifier) verify();
    const std::vector<Change>& left = mScript.left();
    mStats.notReached.insert(mStats.notReached.end(), left.begin(), left.end());
    mStream.clear();
    mVpp.reset();
}

void Client::verify() {
    if (mStream.stopped()) mVerifier->interrupted("end");
    mVerifier->close(mStats.ledger);
    mStats.violation = mVerifier->violation();
    if (mStats.violation.empty()) mStats.verified = mVerifier->summary();
}

}  // namespace qozplay
