#include "qozplay/cli/Console.h"

#include <ostream>

namespace qozplay {
namespace {

constexpr std::chrono::milliseconds kInterval{100};

}  // namespace

Console::Console(std::ostream& out, std::ostream& err, bool live)
    : mOut(out), mErr(err), mLive(live), mStart(Clock::now()), mNext(mStart) {}

void Console::print(const std::string& text) {
    const std::lock_guard lock(mLock);
    wipe();
    mOut << text << std::flush;
}

void Console::report(const std::string& line) {
    const std::lock_guard lock(mLock);
    wipe();
    mErr << line << std::endl;
}

void Console::progress(uint64_t framesIn, uint64_t framesOut, size_t inFlight) {
    if (!mLive) return;
    const Clock::time_point now = Clock::now();
    const std::lock_guard lock(mLock);
    if (now < mNext) return;
    mNext = now + kInterval;
    const double seconds = milliseconds(now - mStart) / 1000;
    wipe();
    mErr << format("%llu frames in, %llu out, %.1f fps, %zu buffers in flight",
                   static_cast<unsigned long long>(framesIn),
                   static_cast<unsigned long long>(framesOut),
                   seconds > 0 ? static_cast<double>(framesOut) / seconds : 0, inFlight)
         << std::flush;
    mShown = true;
}

void Console::endProgress() {
    const std::lock_guard lock(mLock);
    wipe();
}

void Console::wipe() {
    if (mShown) mErr << "\r\033[K" << std::flush;
    mShown = false;
}

}  // namespace qozplay
