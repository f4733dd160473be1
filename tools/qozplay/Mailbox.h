// The client's ear: what the component gives back, from whatever thread, waits here until the
// client's own thread looks.
#pragma once

#include "Basics.h"
#include "FrameTrace.h"
#include "Ledger.h"

#include <qoz/ClientTypes.h>

#include <condition_variable>
#include <mutex>
#include <vector>

namespace qozplay {

constexpr uint32_t kOutputPort = 0;
constexpr uint32_t kSourcePort = 1;

struct Done {
    uint32_t port;
    int32_t slot;
    bool valid;
    uint64_t timestamp;  // microseconds
    Clock::time_point at;
};

class Mailbox final : public android::IQOZCallback {
  public:
    explicit Mailbox(const std::string& session) : mTrace(session) {}

    // Any thread; only for a moment under our own lock, which nobody holds while calling out.
    void onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) override;
    void onConfigChanged(std::set<uint32_t> changes) override;

    void lend(uint32_t port, int32_t slot);
    bool refuse(uint32_t port, int32_t slot);  // false: it has been given back already

    // Everything that came in good order since the last look; waits until `end` for something.
    std::vector<Done> take(Clock::time_point end);
    std::vector<Done> take();

    // Whether the component has said so since the last look.
    bool takeConfigChanged();

    size_t outstanding() const;
    size_t outstanding(uint32_t port) const;
    Ledger ledger() const;
    FrameTrace& trace() { return mTrace; }

  private:
    void traceLent(uint32_t port);

    FrameTrace mTrace;
    mutable std::mutex mLock;
    std::condition_variable mCame;
    Ledger mLedger;
    std::vector<Done> mDone;
    bool mConfigChanged = false;
};

}  // namespace qozplay
