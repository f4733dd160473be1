// SPDX-License-Identifier: Apache-2.0
// Which buffers are with the component: what has been queued and what has been returned. It knows
// ports and slots and nothing else, so it serves every client; whoever shares one between threads
// guards it with a lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

namespace qoz::client {

class Ledger {
  public:
    struct Totals {
        uint64_t queued = 0;
        uint64_t returned = 0;
        uint64_t refused = 0;    // offered, but remained the client's
        uint64_t doubled = 0;    // nothing was outstanding under the slot
        uint64_t wrongPort = 0;  // it was outstanding on another port; counts as returned there
    };

    using Entry = std::pair<uint32_t, int32_t>;  // port, slot

    // To be called before the buffer is handed over, as it may be returned during that call. False:
    // it is outstanding already.
    bool queue(uint32_t port, int32_t slot);

    // The buffer was not taken. False: it is not outstanding any more, so it was returned all the
    // same.
    bool refuse(uint32_t port, int32_t slot);

    // False: not as it was queued; the totals say how.
    bool giveBack(uint32_t port, int32_t slot);

    const Totals& totals() const { return mTotals; }
    size_t outstanding() const { return mOut.size(); }
    size_t outstanding(uint32_t port) const;
    std::vector<Entry> missing() const { return {mOut.begin(), mOut.end()}; }

    // Nothing is outstanding, and nothing was returned that had not been queued.
    bool settled() const;

  private:
    std::set<Entry> mOut;
    Totals mTotals;
};

}  // namespace qoz::client
