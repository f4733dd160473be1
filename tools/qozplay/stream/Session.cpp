// SPDX-License-Identifier: Apache-2.0
#include "qozplay/stream/Session.h"

#include <android/binder_auto_utils.h>
#include <android/log.h>
#include <libyuv.h>
#include <sys/mman.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

namespace qozplay {
namespace {

// The error of a wait that ended without success.
SessionFailed stalled(const Stream& stream) {
    if (stream.client.serviceDied()) {
        return SessionFailed(
            format("the service died, buffers still outstanding: %zu", stream.outstanding()));
    }
    return SessionFailed(format("nothing moved for %lld s, buffers still outstanding: %zu",
                                static_cast<long long>(Stream::kPatience.count()),
                                stream.outstanding()));
}

}  // namespace

Session::Session(SessionPlan plan, FrameSource& source, std::vector<FrameSink*> sinks,
                 SessionSurroundings surroundings)
    : mPlan(std::move(plan)),
      mAround(std::move(surroundings)),
      mSource(source),
      mSettings{mPlan.interp, mPlan.upscaleIndex, source.info().size},
      mWanted(mSettings),
      mStream(mPlan.name, withVerifier(std::move(sinks)), mAround.serviceDied),
      mClient(mStream.client) {}

std::vector<FrameSink*> Session::withVerifier(std::vector<FrameSink*> sinks) {
    if (mPlan.verify) sinks.push_back(&mVerifier.emplace());
    return sinks;
}

SessionStats Session::run() {
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

// Does the work and records an exception as the session's failure. Only the first failure is kept,
// because later ones are usually its consequences.
template <typename Work>
void Session::attempt(Work work) {
    try {
        work();
    } catch (const BadInput& error) {
        if (mStats.failure.empty()) mStats.badInput = true;
        if (mStats.failure.empty()) mStats.failure = error.what();
    } catch (const std::exception& error) {
        if (mStats.failure.empty()) mStats.failure = plainly(error);
        logState();
    }
}

// Writes the component's state dump to the log, once in a session: the state at the first failure
// is the one that explains it.
void Session::logState() {
    if (std::exchange(mStateLogged, true)) return;
    const ndk::ScopedFileDescriptor file(memfd_create("dump", MFD_CLOEXEC));
    if (file.get() < 0) return;
    mClient.vpp->dump(file.get());
    std::ifstream lines(format("/proc/self/fd/%d", file.get()));
    for (std::string line; std::getline(lines, line);)
        __android_log_print(ANDROID_LOG_INFO, "qozplay", "%s", line.c_str());
}

android::ConfigParams Session::paramsFor(const Settings& settings) const {
    return {mPlan.aisOnly ? android::QOZMode::kDoubleSize : android::QOZMode::kFrc, 0,
            settings.interp, settings.upscaleIndex};
}

// Enables and configures the component, and allocates the output buffers.
void Session::start() {
    if (!mClient.enable(mPlan.diagnostics))
        throw SessionFailed("the session could not be enabled; --log shows why");
    mClient.vpp->config(mSettings.size.width, mSettings.size.height, qoz::client::kRgba,
                        paramsFor(mSettings), true);
    if (mClient.vpp->state() != android::VppComponent::ACTIVE) {
        throw SessionFailed(format("the session did not start, its state is %s",
                                   android::toString(mClient.vpp->state())));
    }
    mClient.shapeOutputs();
    mStats.firstOutput = mClient.outputSize();
}

// Sends source frames until the clip or the plan ends, a sink wants no more, or a stop is
// requested.
void Session::feed() {
    for (uint64_t frame = 0; frame != mPlan.frames; ++frame) {
        if (!feedFrame(frame)) break;
        if (frame + 1 == kWarmUpFrames) mAround.warmUp.passed();
        if (mAround.progress) {
            mAround.progress(frame + 1, mStream.framesOut(), mStream.outstanding());
        }
    }
}

// Waits until no source frame is under way.
void Session::drain() {
    if (!mStream.awaitFrames()) throw stalled(mStream);
}

// Sends one source frame with the changes that are due at it. Returns false if no more frames are
// to be sent.
bool Session::feedFrame(uint64_t frame) {
    if (!mStream.awaitRoom()) throw stalled(mStream);
    if (mStream.stopped() || mAround.stop.requested()) return false;
    std::vector<Change> due = takeDue(mPlan.changes, frame);
    for (const Change& change : due) {
        mWanted = {change.interp.value_or(mWanted.interp),
                   change.upscale.value_or(mWanted.upscaleIndex),
                   change.size.value_or(mWanted.size)};
    }
    const int32_t slot = mClient.takeSource(mWanted.size);
    const std::optional<int64_t> time = fill(slot);
    if (!time) {
        mClient.putBackSource(slot);
        mStats.notReached = std::move(due);
        return false;
    }
    for (const Change& change : due) {
        if (change.flushes()) flush(change);
    }
    sendSource(frame, slot, *time);
    for (const Change& change : due) {
        if (!change.flushes()) mStats.changes.push_back({change, mStream.blocked().back()});
    }
    mClient.queueOutputs();
    return true;
}

// Reads the next frame into a source buffer, scaled to its size. Returns the frame's presentation
// time in nanoseconds, or nullopt at the end of the clip.
std::optional<int64_t> Session::fill(int32_t slot) {
    const qoz::client::LockedPixels pixels(mClient.source(slot),
                                           android::GraphicBuffer::USAGE_SW_WRITE_OFTEN);
    const size_t stride = pixels.stride() * 4;
    const Size clip = mSource.info().size;
    const bool scaled = pixels.size() != clip;
    const size_t clipStride = size_t{4} * clip.width;
    if (scaled) mUnscaled.resize(clipStride * clip.height);
    const std::optional<int64_t> time =
        scaled ? mSource.next(mUnscaled.data(), clipStride) : mSource.next(pixels.data(), stride);
    if (time && scaled) {
        libyuv::ARGBScale(mUnscaled.data(), static_cast<int>(clipStride),
                          static_cast<int>(clip.width), static_cast<int>(clip.height),
                          pixels.data(), static_cast<int>(stride),
                          static_cast<int>(pixels.size().width),
                          static_cast<int>(pixels.size().height), libyuv::kFilterBox);
    }
    if (time && mVerifier) mPicture = PictureSummary::ofRgba(pixels, mClient.outputSize());
    return time;
}

// Carries out a flush of the plan.
void Session::flush(const Change& change) {
    const Clock::time_point start = Clock::now();
    mClient.vpp->flushsync();
    mStats.changes.push_back({change, milliseconds(Clock::now() - start)});
    mClient.look();
    mStream.tracker.flushed();
    if (mVerifier) mVerifier->interrupted("flush");
    if (mClient.vpp->state() == android::VppComponent::ERROR) {
        throw SessionFailed(format("the flush at frame %llu failed", big(change.frame)));
    }
}

// Sends a source frame with the wanted settings. A new size or ratio makes the component flush the
// service, so the session first waits for the frames that are under way. A new ratio causes the
// flush only after the frame that carries it has been queued, so that frame itself may not come
// out.
void Session::sendSource(uint64_t frame, int32_t slot, int64_t timestamp) {
    const bool resized = mWanted.size != mSettings.size;
    const bool rescaled = mWanted.upscaleIndex != mSettings.upscaleIndex;
    const bool carries = rescaled || mWanted.interp != mSettings.interp;
    if (resized || rescaled) drain();
    mClient.queueOutputs();

    std::optional<android::ConfigParams> config;
    if (carries) config = paramsFor(mWanted);
    if (mVerifier && resized) mVerifier->interrupted("size change");
    const bool taken = mStream.send(slot, timestamp, config);
    if (carries || resized) mClient.shapeOutputs();
    if (!taken) {  // mSettings is unchanged, so the next frame carries the settings again
        if (mVerifier) mVerifier->refused();
        return;
    }
    const uint64_t microseconds = static_cast<uint64_t>(timestamp) / 1000;
    if (mVerifier) mVerifier->taken(frame, microseconds, mSettings.interp, std::move(mPicture));
    mSettings = mWanted;
    if (!rescaled) return;
    mStream.tracker.flushed();
    if (mVerifier) mVerifier->interrupted("ratio change");
}

// Gets all outstanding buffers back and ends the session; this works after any failure. If the
// service has died, the component returns the service's buffers before flushsync() ends.
void Session::finish() {
    mClient.vpp->flushsync();
    const bool flushed = mClient.vpp->state() != android::VppComponent::ERROR;
    const bool returned = mStream.awaitReturns();
    const bool died = mClient.serviceDied();
    if (!flushed || !returned || died) logState();
    mClient.disable();
    if (died) throw stalled(mStream);
    if (!flushed) throw SessionFailed("the flush at the end failed");
    if (!returned) throw stalled(mStream);
}

// Gathers the figures of the session, closes the verifier, and releases the component.
void Session::collect() {
    if (mStream.stopped()) mStream.tracker.flushed();
    mStats.frames = mStream.tracker.finish();
    mStats.blocked = mStream.blocked();
    mStats.seconds = mStream.seconds();
    mStats.lastOutput = mClient.outputSize();
    mStats.ledger = mClient.ledger();
    if (mVerifier) {
        if (mStream.stopped()) mVerifier->interrupted("end");
        mVerifier->close(mStats.ledger);
        mStats.violation = mVerifier->violation();
        if (mStats.violation.empty()) mStats.verified = mVerifier->summary();
    }
    nameCause();
    std::ranges::move(mPlan.changes, std::back_inserter(mStats.notReached));
    mClient.release();
}

// If the service has died, puts that before the recorded failure, which is a consequence of it.
void Session::nameCause() {
    if (mStats.failure.empty() || mStats.badInput || !mClient.serviceDied()) return;
    if (mStats.failure.find("the service died") != std::string::npos) return;
    mStats.failure = "the service died: " + mStats.failure;
}

}  // namespace qozplay
