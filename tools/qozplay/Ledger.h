// What has been lent and what has come back. Knows ports and slots and nothing else, so it serves
// every client; who shares one between threads guards it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

namespace qozplay {

class Ledger {
  public:
    enum class Verdict {
        Good,
        Doubled,    // nothing is lent under this slot
        WrongPort,  // it is lent, but on another port; counts as come back there
    };

    struct Totals {
        uint64_t lent = 0;
        uint64_t returned = 0;
        uint64_t refused = 0;  // offered, but stayed the client's
        uint64_t doubled = 0;
        uint64_t wrongPort = 0;
    };

    using Entry = std::pair<uint32_t, int32_t>;  // port, slot

    // Before the buffer is handed over: it may come back while it is being given. False: it is lent
    // already.
    bool lend(uint32_t port, int32_t slot);

    // The buffer was not taken. False: it is not lent any more, so it came back all the same.
    bool refuse(uint32_t port, int32_t slot);

    Verdict giveBack(uint32_t port, int32_t slot);

    const Totals& totals() const { return mTotals; }
    size_t outstanding() const { return mOut.size(); }
    size_t outstanding(uint32_t port) const;
    std::vector<Entry> missing() const { return {mOut.begin(), mOut.end()}; }

    // Everything is home and nothing came that had not been lent.
    bool settled() const;

  private:
    std::set<Entry> mOut;
    Totals mTotals;
};

}  // namespace qozplay
