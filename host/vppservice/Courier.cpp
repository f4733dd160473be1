#include "host/vppservice/Courier.h"

#include <host/platform/BinderThreads.h>

#include <utility>

namespace qoz::host::vppservice {
namespace {

constexpr std::chrono::seconds kLongestCallback{2};
constexpr int64_t kIdBits = 0x7FFEFFFF;  // of a cookie; the others tell what the buffer is
constexpr int64_t kUnknownId = 4711;

// The courier whose callback this binder thread is carrying out.
thread_local const Courier* tCarriedFor = nullptr;

const char* nameOf(Notice::Kind kind) {
    switch (kind) {
        case Notice::Kind::InputDone:
            return "inputBufferDone";
        case Notice::Kind::OutputDone:
            return "outputBufferDone";
        case Notice::Kind::FlushDone:
            return "eventFlushDone";
        case Notice::Kind::ReconfigDone:
            return "eventReconfigDone";
        case Notice::Kind::DrainDone:
            break;
    }
    return "eventDrainDone";
}

void call(vpp::IVppCallbacks& callbacks, const Notice& notice, VppError status) {
    VppError ignored = VppError::VPP_OK;
    if (status != VppError::VPP_OK && notice.kind != Notice::Kind::ReconfigDone) {
        callbacks.eventError(status, &ignored);
    }
    switch (notice.kind) {
        case Notice::Kind::InputDone:
            callbacks.inputBufferDone(notice.buffer, &ignored);
            break;
        case Notice::Kind::OutputDone:
            callbacks.outputBufferDone(notice.buffer, &ignored);
            break;
        case Notice::Kind::FlushDone:
            callbacks.eventFlushDone({static_cast<int32_t>(notice.port)}, &ignored);
            break;
        case Notice::Kind::ReconfigDone:
            callbacks.eventReconfigDone({static_cast<int32_t>(status)}, &ignored);
            break;
        case Notice::Kind::DrainDone:
            callbacks.eventDrainDone(&ignored);
            break;
    }
}

// Of the same kind, and nothing that the client could know.
Notice strayLike(const Notice& notice) {
    Notice stray;
    stray.kind = notice.kind;
    stray.port = static_cast<VppPort>(INT32_MIN);
    stray.buffer.cookie = -1;
    stray.buffer.timestamp = UINT64_MAX;
    stray.buffer.pixelFilledLen = UINT32_MAX;
    stray.buffer.pixelAllocLen = UINT32_MAX;
    return stray;
}

}  // namespace

void Courier::start() {
    mWorker.start("vpp courier", [self = shared_from_this()] { self->run(); });
}

void Courier::post(Notice notice) {
    const std::lock_guard lock(mLock);
    if (mStopped) return;
    mNotices.push_back(std::move(notice));
    mCond.notify_one();
}

void Courier::stop() {
    std::deque<Notice> notices;
    std::multimap<Clock::time_point, Parcel> late;
    std::shared_ptr<vpp::IVppCallbacks> callbacks;
    {
        const std::lock_guard lock(mLock);
        mStopped = true;
        notices.swap(mNotices);
        late.swap(mLate);
        callbacks.swap(mCallbacks);
        mCond.notify_one();
    }
    const bool within = tCarriedFor == this;
    mWorker.finish(within ? std::chrono::milliseconds(0) : kLongestCallback);
}

void Courier::run() {
    std::optional<Parcel> swapped;  // with the one that follows
    for (Parcel parcel; next(&parcel); parcel = {}) {
        if (!judge(&parcel)) continue;
        if (parcel.verdict->manner == Manner::Swap && !swapped) {
            parcel.to.reset();  // stop() lets go of the client's object
            swapped = std::move(parcel);
            continue;
        }
        deliver(&parcel);
        if (!swapped) continue;
        swapped->to = parcel.to;
        deliver(&*swapped);
        swapped.reset();
    }
}

bool Courier::next(Parcel* out) {
    std::unique_lock lock(mLock);
    for (;;) {
        if (mStopped) return false;
        if (!mLate.empty() && mLate.begin()->first <= Clock::now()) {
            *out = std::move(mLate.extract(mLate.begin()).mapped());
            break;
        }
        if (!mNotices.empty()) {
            out->notice = std::move(mNotices.front());
            mNotices.pop_front();
            break;
        }
        if (mLate.empty()) {
            mCond.wait(lock);
        } else {
            mCond.wait_until(lock, mLate.begin()->first);
        }
    }
    out->to = mCallbacks;
    return true;
}

// True when it is this courier's turn to deliver, now.
bool Courier::judge(Parcel* parcel) {
    if (parcel->verdict) return true;
    Notice& notice = parcel->notice;
    if (notice.barrier != nullptr && notice.barrier->fetch_sub(1) > 1) return false;
    if (notice.manner != Manner::Plain) {
        parcel->verdict.emplace().manner = notice.manner;
        return true;
    }
    const Verdict verdict = mGate->judge(nameOf(notice.kind));
    parcel->verdict = verdict;
    if (verdict.delay.count() <= 0) return true;
    const std::lock_guard lock(mLock);
    if (!mStopped) mLate.emplace(Clock::now() + verdict.delay, std::move(*parcel));
    return false;
}

void Courier::deliver(Parcel* parcel) const {
    const Verdict& verdict = *parcel->verdict;
    if (verdict.lost || verdict.manner == Manner::Drop) return;
    VppBuffer& buffer = parcel->notice.buffer;
    if (verdict.answer && parcel->notice.kind == Notice::Kind::OutputDone) {
        buffer.pixelFilledLen = 0;
    }
    if (verdict.manner == Manner::Unknown) buffer.cookie = (buffer.cookie & ~kIdBits) | kUnknownId;
    if (verdict.manner == Manner::Stray) {
        bring(*parcel->to, strayLike(parcel->notice), static_cast<VppError>(INT32_MIN));
    }
    const int times = verdict.manner == Manner::Twice ? 2 : 1;
    for (int i = 0; i < times; ++i) {
        bring(*parcel->to, parcel->notice, verdict.answer.value_or(VppError::VPP_OK));
    }
}

void Courier::bring(vpp::IVppCallbacks& to, const Notice& notice, VppError status) const {
    callOnBinderThread([&] {
        tCarriedFor = this;
        call(to, notice, status);
        tCarriedFor = nullptr;
    });
}

}  // namespace qoz::host::vppservice
