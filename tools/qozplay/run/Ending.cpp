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

// Freed when all memory is used up, for what still has to be done. Several threads may find that at
// the same time.
std::atomic<char*> gReserve{nullptr};

void say(const char* text) {
    (void)!write(STDERR_FILENO, text, std::strlen(text));
}

std::mutex gLock;
fs::path gFolder GUARDED_BY(gLock);       // the temporary folder that exists
bool gForGood GUARDED_BY(gLock) = false;  // the process is about to end: none is made any more

// Under another name first: whoever is about to make something in the folder does not find it, so
// that all of it goes.
void removeFolder() REQUIRES(gLock) {
    if (gFolder.empty()) return;
    const fs::path going = gFolder.string() + ".going";
    std::error_code ignored;  // what cannot be removed stays
    fs::rename(gFolder, going, ignored);
    fs::remove_all(ignored ? gFolder : going, ignored);
    gFolder.clear();
}

// Nothing temporary stays.
[[noreturn]] void endWith(int code) {
    try {
        const std::lock_guard lock(gLock);
        gForGood = true;
        removeFolder();
    } catch (...) {  // there is nobody left to tell
    }
    _exit(code);
}

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

void waitForSignals(const sigset_t& signals, StopRequest& stop) {
    int signal = 0;
    sigwait(&signals, &signal);
    stop.request(signal);
    sigwait(&signals, &signal);
    endWith(128 + signal);
}

}  // namespace

// A standard stream that the caller has closed would be the next file that is opened, and whoever
// writes to the stream would write into that file. In its place stands one that can do nothing:
// reading from it or writing to it is an error.
void holdStandardStreams() {
    for (const auto& [stream, wrongWay] :
         {std::pair(STDIN_FILENO, O_WRONLY), std::pair(STDOUT_FILENO, O_RDONLY),
          std::pair(STDERR_FILENO, O_RDONLY)}) {
        if (fcntl(stream, F_GETFD) < 0)
            (void)!open("/dev/null", wrongWay);  // takes the lowest free
    }
}

void endPlainly() {
    constexpr size_t kReserve = 1 << 18;  // bytes
    gReserve = new char[kReserve];
    std::set_terminate(endNow);
}

void stopOnSignals(StopRequest& stop) {
    // The writer notices itself that a reader has gone or a file is as large as it may be.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    try {
        std::thread([signals, &stop] { waitForSignals(signals, stop); }).detach();
    } catch (const std::system_error&) {  // then they end it at once, as they always did
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

// Without memory for the removal the folder is left to the end of the process, which has a reserve.
TemporaryFolder::~TemporaryFolder() {
    try {
        const std::lock_guard lock(gLock);
        removeFolder();
    } catch (const std::bad_alloc&) {
        return;
    }
}

}  // namespace qozplay
