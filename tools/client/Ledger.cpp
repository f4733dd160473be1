// SPDX-License-Identifier: Apache-2.0
#include "client/Ledger.h"

#include <algorithm>

namespace qoz::client {

bool Ledger::queue(uint32_t port, int32_t slot) {
    if (!mOut.emplace(port, slot).second) return false;
    ++mTotals.queued;
    return true;
}

bool Ledger::refuse(uint32_t port, int32_t slot) {
    if (mOut.erase({port, slot}) == 0) return false;
    --mTotals.queued;
    ++mTotals.refused;
    return true;
}

bool Ledger::giveBack(uint32_t port, int32_t slot) {
    if (mOut.erase({port, slot}) != 0) {
        ++mTotals.returned;
        return true;
    }
    const auto elsewhere = std::ranges::find(mOut, slot, &Entry::second);
    if (elsewhere == mOut.end()) {
        ++mTotals.doubled;
        return false;
    }
    mOut.erase(elsewhere);
    ++mTotals.returned;
    ++mTotals.wrongPort;
    return false;
}

size_t Ledger::outstanding(uint32_t port) const {
    return static_cast<size_t>(std::count_if(
        mOut.begin(), mOut.end(), [&](const Entry& entry) { return entry.first == port; }));
}

bool Ledger::settled() const {
    return mOut.empty() && mTotals.doubled == 0 && mTotals.wrongPort == 0;
}

}  // namespace qoz::client
