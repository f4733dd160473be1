// SPDX-License-Identifier: Apache-2.0
// Fuzzes the objects of the service and the callback object of a client through a bus. Peers call
// any operation in any order with any record. The process must survive and every thread that a call
// starts must end.
#include <aidl/vendor/vuq/hardware/vpp/BnVppCallbacks.h>
#include <android/binder_process.h>
#include <host/control.h>
#include <host/vppd/CallbackReceiver.h>
#include <host/vppd/PrivateBus.h>
#include <host/vppd/RemoteCall.h>
#include <host/vppd/ServiceObject.h>
#include <host/vppservice/Service.h>

#include <filesystem>

#include "RecordReader.h"

namespace {

namespace vpp = qoz::host::vppd::vpp;
using namespace qoz::fuzz;
using vpp::VppError;
using vppd::Bus;
using vppd::BusPort;

// A client that accepts every callback.
class Client final : public vpp::BnVppCallbacks {
    using Status = ndk::ScopedAStatus;
    Status eventDrainDone(VppError*) override { return Status::ok(); }
    Status eventError(VppError, VppError*) override { return Status::ok(); }
    Status eventFlushDone(const vpp::FlushDone&, VppError*) override { return Status::ok(); }
    Status eventReconfigDone(const vpp::ReconfigDone&, VppError*) override { return Status::ok(); }
    Status inputBufferDone(const vpp::VppBuffer&, VppError*) override { return Status::ok(); }
    Status outputBufferDone(const vpp::VppBuffer&, VppError*) override { return Status::ok(); }
};

// The bus with the service and two more connections: a client, and a stranger, whose calls the
// objects refuse. Exists for the whole run.
struct Peers {
    Peers() {
        ABinderProcess_startThreadPool();
        qoz::host::setLogSink([](const LogLine&) {});
        for (const auto& connection : {server, client, stranger})
            connection->start({});
        server->connection().requestName(vppd::kBusName);
    }

    const PrivateBus bus{{}, std::filesystem::temp_directory_path(), "/bin/false"};
    const std::shared_ptr<Bus> server = std::make_shared<Bus>(bus.address());
    const std::shared_ptr<Bus> client = std::make_shared<Bus>(bus.address());
    const std::shared_ptr<Bus> stranger = std::make_shared<Bus>(bus.address());
    const vppservice::RegisteredService service;
    vppd::ServiceObject object{server, service.service()};
};

Peers& peers() {
    static auto* instance = new Peers;
    return *instance;
}

constexpr auto kPatience = std::chrono::seconds(5);

size_t countThreads() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(tasks), end(tasks)));
}

// Waits until the work that an input has started is done, so that a failure belongs to one input. A
// thread that does not end is also a failure.
void awaitThreads(size_t before) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (countThreads() > before) {
        require(std::chrono::steady_clock::now() < end);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

template <typename Value, typename... Args>
Value ask(Bus& from, const char* method, const Args&... args) {
    const auto proxy = sdbus::createProxy(from.connection(), vppd::kBusName, vppd::kServicePath);
    return vppd::callWithin<Value>(std::chrono::steady_clock::now() + kPatience, *proxy,
                                   vppd::kServiceInterface, method, args...);
}

// An object on the bus to which calls are sent, without waiting for answers.
class Target {
  public:
    Target(Bus& from, const std::string& destination, const std::string& path,
           const char* interface)
        : mProxy(sdbus::createProxy(from.connection(), destination, path)), mInterface(interface) {}

    // Sends a call. A call that the bus library cannot send, for example because a descriptor is
    // not valid, is left out.
    template <typename... Args>
    void cast(const char* method, const Args&... args) {
        try {
            mProxy->callMethod(method)
                .onInterface(mInterface)
                .withArguments(args...)
                .dontExpectReply();
        } catch (const sdbus::Error&) {
            return;
        }
    }

  private:
    const std::unique_ptr<sdbus::IProxy> mProxy;
    const char* const mInterface;
};

BusPort anyPort(RecordReader& in) {
    if (in.flag()) return {33, 48, 48, 33, 3};
    if (in.flag()) return {66, 96, 96, 66, 3};
    return {in.number<int32_t>(), in.number<int32_t>(), in.number<int32_t>(), in.number<int32_t>(),
            in.number<int8_t>()};
}

// Returns a record that a session with the ports above accepts.
BusBuffer goodBuffer(RecordReader& in, bool isOutput) {
    const uint32_t bytes = isOutput ? bytesOf(96, 66) : bytesOf(48, 33);
    const int fd = memfd_create("record", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    require(fd >= 0 && ftruncate(fd, bytes) == 0);
    require(fcntl(fd, F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK) == 0);
    std::vector<sdbus::UnixFd> fds;
    fds.emplace_back(fd, sdbus::adopt_fd);
    const BusHandle none{{}, {}};
    return {BusHandle{fds, {}},
            0,
            bytes,
            isOutput ? 0 : bytes,
            bytes,
            none,
            0,
            0,
            0,
            0,
            std::vector<BusMeta>{},
            0,
            in.number<uint16_t>(),
            0,
            in.number<int64_t>()};
}

// Makes one call to a session. `name` is the unique name of the caller.
void callSession(RecordReader& in, Target& session, const std::string& name) {
    const int32_t port = in.number<uint8_t>() % 8 == 0 ? in.number<int32_t>() : in.flag();
    switch (in.number<uint8_t>() % 16) {
        case 0:
            return session.cast("InitSession", in.flag() ? 0 : in.number<int32_t>(), name,
                                sdbus::ObjectPath(in.flag() ? "/none" : "/"));
        case 1:
            return session.cast("Open");
        case 2:
            return session.cast(in.flag() ? "Close" : "TerminateSession");
        case 3:
            return session.cast("Drain");
        case 4:
            return session.cast("Flush", port);
        case 5:
            return session.cast("Reconfigure", anyPort(in), anyPort(in));
        case 6:
            return session.cast("SetCtrlVppMode", in.number<int8_t>());
        case 7:
            return session.cast("SetCtrlAis", in.ais());
        case 8:
            return session.cast("SetCtrlFrc", in.segments());
        case 9:
        case 10:
            return session.cast("SetParameter", port, anyPort(in));
        case 11:
            return session.cast("QueueBuf", port, in.buffer());
        case 12:
            return session.cast(in.number<uint8_t>() == 0 ? "Release" : "Open");
        default:
            return session.cast("QueueBuf", port, goodBuffer(in, port == 1));
    }
}

// Calls two sessions of the client. Some of the calls come from the stranger.
void callService(RecordReader& in) {
    Peers& w = peers();
    std::vector<std::string> paths;
    paths.reserve(2);
    for (int i = 0; i < 2; ++i)
        paths.push_back(ask<sdbus::ObjectPath>(*w.client, "GetNewVppSession", int32_t{0}));
    for (int steps = 0; steps < 64 && in.more(); ++steps) {
        Bus& from = in.number<uint8_t>() % 8 == 0 ? *w.stranger : *w.client;
        Target session(from, vppd::kBusName, paths[in.flag() ? 1 : 0], vppd::kSessionInterface);
        callSession(in, session, from.name());
    }
    for (const std::string& path : paths)
        Target(*w.client, vppd::kBusName, path, vppd::kSessionInterface).cast("Release");
    ask<int32_t>(*w.client, "GetSessionCount");
}

// Calls a callback object of the client. Only the connection of the server may call it.
void callBack(RecordReader& in) {
    Peers& w = peers();
    vppd::CallbackReceiver receiver(w.client, w.server->name(), ndk::SharedRefBase::make<Client>());
    for (int steps = 0; steps < 32 && in.more(); ++steps) {
        Bus& from = in.number<uint8_t>() % 4 == 0 ? *w.stranger : *w.server;
        Target callbacks(from, w.client->name(), receiver.path(), vppd::kCallbacksInterface);
        switch (in.number<uint8_t>() % 6) {
            case 0:
                callbacks.cast("EventDrainDone");
                break;
            case 1:
                callbacks.cast("EventError", in.number<int32_t>());
                break;
            case 2:
                callbacks.cast("EventFlushDone", in.number<int32_t>());
                break;
            case 3:
                callbacks.cast("EventReconfigDone", in.number<int32_t>());
                break;
            case 4:
                callbacks.cast("InputBufferDone", in.buffer());
                break;
            default:
                callbacks.cast("OutputBufferDone", in.buffer());
        }
    }
    receiver.stop(std::chrono::steady_clock::now() + kPatience);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RecordReader in(data, size);
    peers();  // its threads are not counted
    const size_t threads = countThreads();
    if (in.number<uint8_t>() % 4 == 0) {
        callBack(in);
    } else {
        callService(in);
    }
    awaitThreads(threads);
    return 0;
}
