// SPDX-License-Identifier: Apache-2.0
#include "qozplay/run/Ending.h"

#include <android-base/thread_annotations.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "qozplay/media/Types.h"

namespace qozplay {
namespace {

namespace fs = std::filesystem;

// Memory that endNow() frees first, so that it can report the failure and remove the folder even if
// all other memory is used up. Atomic, because several threads may call endNow() at the same time.
std::atomic<char*> gReserve{nullptr};

// Writes to standard error without allocating memory.
void say(const char* text) {
    (void)!write(STDERR_FILENO, text, std::strlen(text));
}

std::mutex gLock;
fs::path gFolder GUARDED_BY(gLock);       // the temporary folder; empty if there is none
bool gForGood GUARDED_BY(gLock) = false;  // the process is ending; no folder may be made any more

// Removes the temporary folder. Renames it first, so that other threads can no longer create files
// in it by its path while its contents are removed.
void removeFolder() REQUIRES(gLock) {
    if (gFolder.empty()) return;
    const fs::path going = gFolder.string() + ".going";
    std::error_code ignored;  // files that cannot be removed remain
    fs::rename(gFolder, going, ignored);
    fs::remove_all(ignored ? gFolder : going, ignored);
    gFolder.clear();
}

// Removes the temporary folder and ends the process without running destructors.
[[noreturn]] void endWith(int code) {
    try {
        const std::lock_guard lock(gLock);
        gForGood = true;
        removeFolder();
    } catch (...) {  // the process ends in any case
    }
    _exit(code);
}

// The terminate handler: reports the uncaught exception and ends the process.
[[noreturn]] void endNow() {
    delete[] gReserve.exchange(nullptr);
    say("qozplay: ");
    try {
        if (const auto current = std::current_exception()) std::rethrow_exception(current);
        say("ended without a reason given");
    } catch (const std::exception& error) {
        say(qozplay::plainly(error).c_str());
    } catch (...) {
        say("ended for an unknown reason");
    }
    say("\n");
    endWith(1);
}

// The thread function for signals: the first one requests a stop, the second ends the process.
void waitForSignals(const sigset_t& signals, StopRequest& stop) {
    int signal = 0;
    sigwait(&signals, &signal);
    stop.request(signal);
    sigwait(&signals, &signal);
    endWith(128 + signal);
}

}  // namespace

// Each descriptor is opened in the direction that the stream does not use, so that reading standard
// input and writing the other two fail as they would on a closed stream.
void holdStandardStreams() {
    for (const auto& [stream, wrongWay] :
         {std::pair(STDIN_FILENO, O_WRONLY), std::pair(STDOUT_FILENO, O_RDONLY),
          std::pair(STDERR_FILENO, O_RDONLY)}) {
        if (fcntl(stream, F_GETFD) < 0)
            (void)!open("/dev/null", wrongWay);  // takes the lowest free number, this stream's
    }
}

void endPlainly() {
    constexpr size_t kReserve = 1 << 18;  // bytes
    gReserve = new char[kReserve];
    std::set_terminate(endNow);
}

void stopOnSignals(StopRequest& stop) {
    // write() then fails with EPIPE if the reader has closed the pipe, and with EFBIG if the file
    // has reached the size limit.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    try {
        std::thread([signals, &stop] { waitForSignals(signals, stop); }).detach();
    } catch (const std::system_error&) {  // without a thread, the first signal ends the process
        pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    }
}

TemporaryFolder::TemporaryFolder() {
    const std::lock_guard lock(gLock);
    std::error_code error;
    std::string pattern = (fs::temp_directory_path(error) / "qozplay-XXXXXX").string();
    if (error || gForGood || mkdtemp(pattern.data()) == nullptr) {
        throw BadInput(
            "no folder for temporary files can be made; the variable TMPDIR names where, else "
            "it is /tmp");
    }
    gFolder = mPath = pattern;
}

// On allocation failure the folder remains for now; if the process then ends in endNow(), that
// frees the reserve and removes it.
TemporaryFolder::~TemporaryFolder() {
    try {
        const std::lock_guard lock(gLock);
        removeFolder();
    } catch (const std::bad_alloc&) {
        return;
    }
}

}  // namespace qozplay
