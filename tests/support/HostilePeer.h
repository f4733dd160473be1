// SPDX-License-Identifier: Apache-2.0
// A connection to the service's bus that may break any rule.
#pragma once

#include <host/vppd/Names.h>
#include <host/vppd/Records.h>
#include <host/vppd/RemoteCall.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/VppSessionClient.h"

namespace qoz::test {

// The answer to a call: the name of a D-Bus error, or a number.
struct PeerAnswer {
    std::string error;
    int32_t number = -1;

    bool operator==(const PeerAnswer&) const = default;
};
inline const PeerAnswer kDenied{host::vppd::kAccessDenied, -1};
inline PeerAnswer number(VppError error) {
    return {"", static_cast<int32_t>(error)};
}

// Must be used by one thread at a time.
class HostilePeer {
  public:
    explicit HostilePeer(const std::string& address) : mBus(address) { mBus.start({}); }

    const std::string& name() const { return mBus.name(); }

    // Calls and waits for the answer. Messages that were sent earlier are delivered first.
    template <typename... Args>
    PeerAnswer call(const std::string& destination, const std::string& path, const char* interface,
                    const char* method, const Args&... args) {
        const auto proxy = sdbus::createProxy(mBus.connection(), destination, path);
        try {
            const auto end = std::chrono::steady_clock::now() + kSoon;
            return {"", host::vppd::callWithin<int32_t>(end, *proxy, interface, method, args...)};
        } catch (const sdbus::Error& error) {
            return {error.getName(), -1};
        }
    }
    template <typename... Args>
    PeerAnswer callSession(const std::string& path, const char* method, const Args&... args) {
        return call(host::vppd::kBusName, path, host::vppd::kSessionInterface, method, args...);
    }
    // Calls without waiting for an answer.
    template <typename... Args>
    void castSession(const std::string& path, const char* method, const Args&... args) {
        const auto proxy = sdbus::createProxy(mBus.connection(), host::vppd::kBusName, path);
        proxy->callMethod(method)
            .onInterface(host::vppd::kSessionInterface)
            .withArguments(args...)
            .dontExpectReply();
    }

    // Prepares a call and returns a function that sends it, for use when no descriptor is left to
    // create a call.
    template <typename... Args>
    std::function<void()> prepare(const std::string& destination, const char* interface,
                                  const char* method, const Args&... args) {
        const std::shared_ptr<sdbus::IProxy> proxy =
            sdbus::createProxy(mBus.connection(), destination, "/");
        auto call = proxy->createMethodCall(interface, method);
        (call << ... << args);
        call.dontExpectReply();
        return [proxy, call] { proxy->callMethod(call); };
    }

    // Returns the path of a new session, or "/" if the service creates none.
    std::string newSession() {
        const auto proxy =
            sdbus::createProxy(mBus.connection(), host::vppd::kBusName, host::vppd::kServicePath);
        const auto end = std::chrono::steady_clock::now() + kSoon;
        return host::vppd::callWithin<sdbus::ObjectPath>(end, *proxy, host::vppd::kServiceInterface,
                                                         "GetNewVppSession", int32_t{0});
    }
    // Returns the path of an open session. Its callbacks are sent to an object that does not exist.
    std::string newOpenSession(Size size) {
        std::string path = newSession();
        const auto ports = host::vppd::toBus(port(size));
        callSession(path, "InitSession", int32_t{0}, mBus.name(), sdbus::ObjectPath("/none"));
        callSession(path, "SetCtrlVppMode", kFrameMode);
        for (const int32_t side : {0, 1})
            callSession(path, "SetParameter", side, ports);
        EXPECT_EQ(callSession(path, "Open"), number(VppError::VPP_OK));
        return path;
    }

    // Returns the unique names of all other connections on the bus.
    std::vector<std::string> others() {
        const auto proxy =
            sdbus::createProxy(mBus.connection(), "org.freedesktop.DBus", "/org/freedesktop/DBus");
        std::vector<std::string> names;
        proxy->callMethod("ListNames").onInterface("org.freedesktop.DBus").storeResultsTo(names);
        std::erase_if(names, [&](const std::string& name) {
            return !name.starts_with(':') || name == mBus.name();
        });
        return names;
    }

  private:
    host::vppd::Bus mBus;
};

}  // namespace qoz::test
