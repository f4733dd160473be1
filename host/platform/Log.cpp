// SPDX-License-Identifier: Apache-2.0
#include <android-base/thread_annotations.h>
#include <android/log.h>
#include <host/control.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>

namespace qoz::host {
namespace {

// The installed sink; if it is empty, lines go to standard error. The lock is held while a line is
// written, so that lines are not mixed.
struct Sink {
    std::mutex lock;
    LogSink sink GUARDED_BY(lock);
};

// Never destroyed, because detached threads may still write to the log when the process exits.
Sink& installed() {
    static auto* instance = new Sink;
    return *instance;
}

char letterOf(int priority) {
    static constexpr std::string_view kLetters = "??VDIWEFS";
    return priority >= 0 && static_cast<size_t>(priority) < kLetters.size()
               ? kLetters[static_cast<size_t>(priority)]
               : '?';
}

// Prints "month-day hour:minute:second.millis pid tid priority tag: text", the format "threadtime"
// of the platform's log.
void printThreadTime(const LogLine& line) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    std::array<char, 32> date{};
    strftime(date.data(), date.size(), "%m-%d %H:%M:%S", &local);
    fprintf(stderr, "%s.%03ld %5d %5ld %c %s: %s\n", date.data(), now.tv_nsec / 1000000, getpid(),
            syscall(SYS_gettid), letterOf(line.priority), line.tag.c_str(), line.text.c_str());
}

__attribute__((__format__(printf, 1, 0))) std::string format(const char* fmt, va_list arguments) {
    std::array<char, 1024> text{};  // the limit of the platform; longer messages are cut
    vsnprintf(text.data(), text.size(), fmt, arguments);
    return text.data();
}

// On allocation failure the message is dropped and the caller continues, as on a device.
__attribute__((__format__(printf, 3, 0))) int write(int priority, const char* tag, const char* fmt,
                                                    va_list arguments) try {
    const LogLine line{priority, tag, format(fmt, arguments)};
    Sink& to = installed();
    const std::lock_guard lock(to.lock);
    to.sink ? to.sink(line) : printThreadTime(line);
    return 1;
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

}  // namespace

LogSink setLogSink(LogSink sink) {
    Sink& to = installed();
    const std::lock_guard lock(to.lock);
    return std::exchange(to.sink, std::move(sink));
}

}  // namespace qoz::host

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list arguments;
    va_start(arguments, fmt);
    const int written = qoz::host::write(prio, tag, fmt, arguments);
    va_end(arguments);
    return written;
}
