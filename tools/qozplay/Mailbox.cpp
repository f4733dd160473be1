#include "Mailbox.h"

#include <utility>

namespace qozplay {

void Mailbox::onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) {
    const Clock::time_point now = Clock::now();
    const qoz::host::TraceSlice slice("onBufferDone");
    if (port == kSourcePort || valid != 0) mTrace.came(port == kSourcePort, slot, timestamp);
    const std::lock_guard lock(mLock);
    if (mLedger.giveBack(port, slot) != Ledger::Verdict::Good) return;
    mDone.push_back({port, slot, valid != 0, timestamp, now});
    mCame.notify_one();
    traceLent(port);
}

// Once a buffer is lent or home; mLock is held.
void Mailbox::traceLent(uint32_t port) {
    if (qoz::host::tracing()) mTrace.lent(port == kSourcePort, mLedger.outstanding(port));
}

void Mailbox::onConfigChanged(std::set<uint32_t>) {
    const std::lock_guard lock(mLock);
    mConfigChanged = true;
}

void Mailbox::lend(uint32_t port, int32_t slot) {
    const std::lock_guard lock(mLock);
    mLedger.lend(port, slot);
    traceLent(port);
}

bool Mailbox::refuse(uint32_t port, int32_t slot) {
    const std::lock_guard lock(mLock);
    return mLedger.refuse(port, slot);
}

std::vector<Done> Mailbox::take(Clock::time_point end) {
    std::unique_lock lock(mLock);
    mCame.wait_until(lock, end, [&] { return !mDone.empty(); });
    return std::exchange(mDone, {});
}

std::vector<Done> Mailbox::take() {
    const std::lock_guard lock(mLock);
    return std::exchange(mDone, {});
}

bool Mailbox::takeConfigChanged() {
    const std::lock_guard lock(mLock);
    return std::exchange(mConfigChanged, false);
}

size_t Mailbox::outstanding() const {
    const std::lock_guard lock(mLock);
    return mLedger.outstanding();
}

size_t Mailbox::outstanding(uint32_t port) const {
    const std::lock_guard lock(mLock);
    return mLedger.outstanding(port);
}

Ledger Mailbox::ledger() const {
    const std::lock_guard lock(mLock);
    return mLedger;
}

}  // namespace qozplay
