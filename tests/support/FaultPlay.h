// One stream with something wrong about it: plays it, and keeps what its client saw.
#pragma once

#include <host/control.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "support/LiveClient.h"
#include "support/Sanitized.h"

namespace qoz::test {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kShortWait = kSanitized ? 600ms : 200ms;
constexpr std::chrono::milliseconds kLate = kShortWait * 3 / 2;  // after the wait has ended

class FaultPlay {
  public:
    // `mayLose`: buffers that never come back from a flush, by the fault's doing.
    FaultPlay(std::chrono::milliseconds waitLimit, size_t mayLose);

    // Each of these is timed.
    void start(android::ConfigParams params);
    void frames(int count, uint32_t width, uint32_t height,
                std::optional<android::ConfigParams> carried = {});
    void frameAt(int64_t nanoseconds, uint32_t width = 64, uint32_t height = 48);
    void lendOnceMore(int32_t slot);  // output or source, whether it is out or not
    void drain();
    void flush(bool awaitHome = true);
    void disable();

    void saw(const std::string& text);

    // Frames, a new size, a new ratio, drain, flush, frames; all of it, whatever fails.
    void playOn();

    // The component in a healthy world: it starts, plays, and gives everything back.
    void expectHealth();

    LiveClient client;
    std::vector<std::string> seen;  // in order, each once
    std::chrono::milliseconds longest{0};
    std::chrono::milliseconds disabling{0};
    std::optional<qozplay::Ledger> flushed;  // the books after a flush that ended in IDLE

  private:
    template <typename Act>
    std::chrono::milliseconds time(const Act& act);

    const size_t mMayLose;
    int64_t mNow = 0;
};

}  // namespace qoz::test
