// SPDX-License-Identifier: Apache-2.0
#include "support/Watchdog.h"

#include <execinfo.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "support/Sanitized.h"

namespace qoz::test {
namespace {

constexpr unsigned kSeconds = kSanitized ? 120 : 60;
constexpr int kShowStack = SIGUSR2;

std::atomic<int> gShown{0};
static_assert(std::atomic<int>::is_always_lock_free);  // written by a signal handler

void say(const char* text) {
    (void)!write(STDERR_FILENO, text, strlen(text));
}

// The functions up to endHang() run in signal handlers, so they must not use the heap.
void showStack(int) {
    std::array<void*, 48> frames{};
    say("\n-- thread\n");
    backtrace_symbols_fd(frames.data(), backtrace(frames.data(), static_cast<int>(frames.size())),
                         STDERR_FILENO);
    ++gShown;
}

// Makes a thread print its stack and waits until it has. Gives up after half a second, because the
// thread may block signals.
void showThread(int tid) {
    const int before = gShown;
    if (syscall(SYS_tgkill, getpid(), tid, kShowStack) != 0) return;
    constexpr timespec kPause{.tv_sec = 0, .tv_nsec = 1000000};
    for (int i = 0; i < 500 && gShown == before; ++i)
        nanosleep(&kPause, nullptr);
}

int threadNumber(const char* text) {
    int number = 0;
    for (; *text >= '0' && *text <= '9'; ++text)
        number = number * 10 + (*text - '0');
    return number;
}

// The offsets of members in an entry from SYS_getdents64: inode, offset, length, type, name.
constexpr size_t kLengthAt = 16;
constexpr size_t kNameAt = 19;

void endHang(int) {
    say("\nthis test hangs; the stacks of all threads:\n");
    const int folder = open("/proc/self/task", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    std::array<char, 32768> entries{};
    const long bytes = syscall(SYS_getdents64, folder, entries.data(), entries.size());
    for (long at = 0; at < bytes;) {
        const char* entry = entries.data() + at;
        uint16_t length = 0;
        memcpy(&length, entry + kLengthAt, sizeof(length));
        const int tid = threadNumber(entry + kNameAt);
        if (tid > 0) showThread(tid);
        at += length;
    }
    abort();
}

void handle(int signal, void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
}

}  // namespace

Watchdog::Watchdog() {
    void* loaded = nullptr;
    backtrace(&loaded, 1);  // the first call may allocate, so it must not be in a handler
    handle(kShowStack, showStack);
    handle(SIGALRM, endHang);
    feed();
}

Watchdog::~Watchdog() {
    alarm(0);
}

void Watchdog::feed() {
    alarm(kSeconds);
}

}  // namespace qoz::test
