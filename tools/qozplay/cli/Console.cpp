// SPDX-License-Identifier: Apache-2.0
#include "qozplay/cli/Console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ostream>

namespace qozplay {
namespace {

constexpr std::chrono::milliseconds kInterval{100};

size_t terminalWidth() {
    constexpr size_t kUsual = 80;
    winsize size{};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
    return known ? size.ws_col : kUsual;
}

}  // namespace

std::string progressLine(const Progress& progress, double seconds, size_t width) {
    std::string line;
    if (progress.length && *progress.length != 0) {
        const uint64_t in = std::min(progress.framesIn, *progress.length);
        const double left = in == 0 ? 0
                                    : seconds * static_cast<double>(*progress.length - in) /
                                          static_cast<double>(in);
        line = format("%3llu %%, %.0f s left, ", big(in * 100 / *progress.length), left);
    }
    line += format("%llu frames in, %llu out, %.1f fps, %zu buffers outstanding",
                   big(progress.framesIn), big(progress.framesOut),
                   seconds > 0 ? static_cast<double>(progress.framesOut) / seconds : 0,
                   progress.outstanding);
    return line.substr(0, width);
}

Console::Console(std::ostream& out, std::ostream& err, bool live)
    : mOut(out), mErr(err), mLive(live), mStart(Clock::now()), mNext(mStart) {}

bool Console::print(const std::string& text) {
    const std::lock_guard lock(mLock);
    wipe();
    errno = 0;
    mOut << text << std::flush;
    return mOut.good() || errno == EPIPE;
}

void Console::report(const std::string& line) {
    const std::lock_guard lock(mLock);
    wipe();
    mErr << line << std::endl;
}

void Console::progress(const Progress& progress) {
    if (!mLive) return;
    const Clock::time_point now = Clock::now();
    const std::lock_guard lock(mLock);
    if (now < mNext) return;
    mNext = now + kInterval;
    wipe();
    // The last column stays free, because a full line would make some terminals begin a new one.
    mErr << progressLine(progress, milliseconds(now - mStart) / 1000, terminalWidth() - 1)
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
