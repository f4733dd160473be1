#include "Console.h"

#include <algorithm>
#include <ostream>
#include <utility>

namespace qozplay {
namespace {

constexpr std::chrono::milliseconds kInterval{100};
constexpr size_t kMostHeld = 1000;  // lines

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
    if (mHolding) return keep(line);
    wipe();
    mErr << line << std::endl;
}

void Console::keep(const std::string& line) {
    mHeld.push_back(line);
    if (mHeld.size() <= kMostHeld) return;
    mHeld.pop_front();
    ++mForgotten;
}

void Console::hold() {
    const std::lock_guard lock(mLock);
    mHolding = true;
}

void Console::release() {
    const std::lock_guard lock(mLock);
    mHolding = false;
    if (mForgotten != 0) {
        mErr << format("(%llu lines before these are left out)\n",
                       static_cast<unsigned long long>(mForgotten));
    }
    for (const std::string& line : std::exchange(mHeld, {}))
        mErr << line << '\n';
    mErr << std::flush;
    mForgotten = 0;
}

std::vector<std::string> Console::lastHeld(size_t count) const {
    const std::lock_guard lock(mLock);
    const size_t shown = std::min(count, mHeld.size());
    return {mHeld.end() - static_cast<std::ptrdiff_t>(shown), mHeld.end()};
}

void Console::progress(uint64_t framesIn, uint64_t framesOut, size_t inFlight) {
    if (!mLive) return;
    const Clock::time_point now = Clock::now();
    const std::lock_guard lock(mLock);
    if (mHolding || now < mNext) return;
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
