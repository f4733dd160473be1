// SPDX-License-Identifier: Apache-2.0
#include "host/vppd/PrivateBus.h"

#include <android/binder_auto_utils.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "host/vppd/Bus.h"
#include "host/vppd/Names.h"

// Some C libraries have a version of this header that is not prepared for C++.
extern "C" {
#include <sys/pidfd.h>
}

namespace qoz::host {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using Descriptor = ndk::ScopedFileDescriptor;

constexpr char kProgram[] = "qoz-vppd";
constexpr int kAddressFd = 3;  // the descriptor to which the bus writes its address
constexpr int kLimit = 2000;   // milliseconds for the bus to start, or for a process to end

// Searches the folder of the running program, and then the build that this folder is in: it may be
// the top folder of the build or up to two levels below.
std::string findProgram() {
    fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();
    if (fs::exists(folder / kProgram)) return folder / kProgram;
    for (int i = 0; i < 3; ++i) {
        const fs::path built = folder / "host" / "vppd" / kProgram;
        if (fs::exists(built)) return built;
        folder = folder.parent_path();
    }
    throw std::runtime_error(std::string("cannot find ") + kProgram);
}

// Asks a process to end, and kills it if it does not. `process` is a process descriptor: unlike a
// process id, it can never refer to another, later process.
void endProcess(const Descriptor& process) {
    if (process.get() < 0) return;
    pollfd ended{process.get(), POLLIN, 0};
    for (const int signal : {SIGTERM, SIGKILL}) {
        if (pidfd_send_signal(process.get(), signal, nullptr, 0) != 0) return;
        while (poll(&ended, 1, kLimit) < 0 && errno == EINTR) {
        }
        if (ended.revents != 0) return;
    }
}

// Returns the D-Bus address of a socket. Most characters other than letters and digits must be
// written as % and two hexadecimal digits.
std::string addressOf(const fs::path& socket) {
    constexpr size_t kLongest = sizeof(sockaddr_un::sun_path) - 1;
    if (socket.string().size() > kLongest) {
        throw std::runtime_error(
            "the path of the folder for temporary files is too long for a socket: set TMPDIR to a "
            "shorter one");
    }
    std::ostringstream address;
    address << "unix:path=" << std::hex << std::setfill('0');
    for (const unsigned char sign : socket.string()) {
        if (std::isalnum(sign) != 0 || sign == '/' || sign == '-' || sign == '_' || sign == '.') {
            address << sign;
        } else {
            address << '%' << std::setw(2) << int{sign};
        }
    }
    return address.str();
}

// Waits until a read would not block. Returns false if `end` comes first.
bool awaitInput(int fd, Clock::time_point end) {
    pollfd input{fd, POLLIN, 0};
    int ready = 0;
    do {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        ready = poll(&input, 1, std::max(static_cast<int>(left.count()), 0));
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

// Reads one line. The bus writes the line when it is ready; if it ends before that, or is not ready
// in time, the result is empty.
std::string readLine(int fd) {
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(kLimit);
    std::string line;
    char byte = 0;
    while (awaitInput(fd, end) && read(fd, &byte, 1) == 1) {
        if (byte == '\n') return line;
        line += byte;
    }
    return {};
}

// Waits for a child that has ended or has been killed.
void reap(pid_t child) {
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace

PrivateBus::Folder::Folder(const fs::path& parent) {
    std::string pattern = parent / "qoz-bus-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), pattern);
    }
    path = pattern;
}

PrivateBus::Folder::~Folder() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

PrivateBus::PrivateBus(const std::vector<std::string>& arguments, const fs::path& parent,
                       std::string program)
    : mFolder(parent) {
    writeConfig(arguments, program.empty() ? findProgram() : std::move(program));
    start();
}

// Without a free descriptor the process id serves, which is that of a child until the wait; nothing
// is asked of the bus then, and the service ends with the bus.
PrivateBus::~PrivateBus() {
    const Descriptor bus(pidfd_open(mPid, 0));
    if (bus.get() < 0) {
        kill(mPid, SIGKILL);
    } else {
        const std::optional<pid_t> service = servicePid();
        if (service) endProcess(Descriptor(pidfd_open(*service, 0)));
        endProcess(bus);
    }
    reap(mPid);
}

void PrivateBus::writeConfig(const std::vector<std::string>& arguments,
                             const std::string& program) const {
    std::ofstream(mFolder.path / "bus.conf")
        << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig><type>session</type><auth>EXTERNAL</auth>\n"
           // The most descriptors that the kernel passes with one message. The bus disconnects a
           // sender that exceeds this limit, but the service should refuse the call instead.
           "<limit name=\"max_message_unix_fds\">253</limit>\n"
           // The messages of one sender that the receivers have not read yet. The limit is low, so
           // that a client that floods the service has to wait and the other clients do not. A
           // single message may exceed it.
           "<limit name=\"max_incoming_bytes\">4096</limit>\n"
           "<limit name=\"max_incoming_unix_fds\">512</limit>\n"
           "<limit name=\"max_message_size\">1048576</limit>\n"
           // The messages that wait for one receiver: more than all senders together can have sent.
           "<limit name=\"max_outgoing_bytes\">33554432</limit>\n"
           "<limit name=\"max_outgoing_unix_fds\">65536</limit>\n"
           // The calls of one connection that have not been answered. The service makes a few for
           // each session, and a client may never answer them.
           "<limit name=\"max_replies_per_connection\">4096</limit>\n"
        << "<listen>" << addressOf(mFolder.path / "socket") << "</listen>\n"
        << "<servicedir>" << mFolder.path.string() << "</servicedir>\n"
        << "<policy context=\"default\"><allow own=\"*\"/>\n"
           "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/></policy></busconfig>\n";
    std::ofstream service(mFolder.path / (std::string(vppd::kBusName) + ".service"));
    service << "[D-BUS Service]\nName=" << vppd::kBusName << "\nExec=\"" << program << '"';
    for (const std::string& argument : arguments) {
        service << " \"" << argument << '"';
    }
    service << '\n';
}

// The bus and the service inherit only the standard streams. A buffer of this process that they
// inherited by accident would never be freed.
void PrivateBus::start() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    const Descriptor ours(ends[0]);
    Descriptor theirs(ends[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // dup2() of a descriptor onto itself would not clear its close-on-exec flag.
    if (theirs.get() == kAddressFd) theirs.set(fcntl(kAddressFd, F_DUPFD_CLOEXEC, kAddressFd + 1));
    posix_spawn_file_actions_adddup2(&actions, theirs.get(), kAddressFd);
    posix_spawn_file_actions_addclosefrom_np(&actions, kAddressFd + 1);
    std::vector<std::string> words{"setpriv",
                                   "--pdeathsig=TERM",
                                   "dbus-daemon",
                                   "--config-file=" + (mFolder.path / "bus.conf").string(),
                                   "--print-address=" + std::to_string(kAddressFd),
                                   "--nofork",
                                   "--syslog-only"};  // leaves standard error to the service
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    // The bus has a process group of its own, so that only this process receives signals from the
    // terminal; it ends the bus itself. Signals that this thread blocks are not blocked in the bus.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    const int error = posix_spawnp(&mPid, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::system_error(error, std::generic_category(), words[0]);
    theirs.set(-1);
    mAddress = readLine(ours.get());
    if (!mAddress.empty()) return;
    kill(mPid, SIGKILL);
    reap(mPid);
    throw std::runtime_error("the message bus did not start");
}

std::optional<pid_t> PrivateBus::servicePid() const {
    try {
        vppd::Bus bus(mAddress);
        bus.start({});
        const auto end = std::chrono::steady_clock::now() + vppd::kCallLimit;
        return bus.pidOf(vppd::kBusName, end);
    } catch (const std::exception&) {
        return std::nullopt;  // the bus has ended, or there is no thread or descriptor to ask it
    }
}

}  // namespace qoz::host
