// SPDX-License-Identifier: Apache-2.0
// The record of the buffers that are outstanding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

namespace qoz::client {

// Checks that every buffer which a client queues is returned exactly once, on its own port. It uses
// only ports and slots, so that it suits every kind of client. It takes no lock; a client that
// shares a ledger between threads guards it.
class Ledger {
  public:
    struct Totals {
        uint64_t queued = 0;  // without those that were refused
        uint64_t returned = 0;
        uint64_t refused = 0;    // queue calls that failed; the buffers remained the client's
        uint64_t doubled = 0;    // returns of a slot that was outstanding on no port
        uint64_t wrongPort = 0;  // returns of a slot that was outstanding on another port
    };

    using Entry = std::pair<uint32_t, int32_t>;  // port, slot

    // Records a buffer as outstanding. Must be called before the buffer is passed to the component,
    // which may return it during that call. Returns false if the buffer is outstanding already.
    bool queue(uint32_t port, int32_t slot);

    // Records that the component refused the buffer, which is then no longer outstanding. Returns
    // false if it was not outstanding, because the component returned it although it reported a
    // failure.
    bool refuse(uint32_t port, int32_t slot);

    // Records a return. Returns false if the buffer was not outstanding on this port, and counts
    // the return as doubled or as wrongPort. In the latter case the buffer that was outstanding on
    // the other port also counts as returned.
    bool giveBack(uint32_t port, int32_t slot);

    const Totals& totals() const { return mTotals; }
    size_t outstanding() const { return mOut.size(); }
    size_t outstanding(uint32_t port) const;
    std::vector<Entry> missing() const { return {mOut.begin(), mOut.end()}; }

    // Returns true if nothing is outstanding and every return matched a queued buffer.
    bool settled() const;

  private:
    std::set<Entry> mOut;  // the outstanding buffers
    Totals mTotals;
};

}  // namespace qoz::client
