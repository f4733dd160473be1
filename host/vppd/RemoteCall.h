// SPDX-License-Identifier: Apache-2.0
// Calls to objects of another process that end in time.
#pragma once

#include <algorithm>
#include <chrono>
#include <future>
#include <iterator>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "host/vppd/Bus.h"

namespace qoz::host::vppd {

// The bus, or a process at either end, had no room for a message or for the descriptors in it. It
// has not been carried out and never will be, so that it may be sent again.
inline bool wasNotCarried(const sdbus::Error& error) {
    constexpr const char* kShortages[] = {"org.freedesktop.DBus.Error.LimitsExceeded",
                                          "org.freedesktop.DBus.Error.NoMemory",
                                          "System.Error.EMFILE", "System.Error.ENFILE"};
    return std::find(std::begin(kShortages), std::end(kShortages), error.getName()) !=
           std::end(kShortages);
}

// Waits for the one value that the call is answered with. What the bus does not carry is sent again
// while there is time. Throws sdbus::Error when the answer is an error, or does not come by `end`.
//
// The wait is ours, not the connection's: it ends also when nobody reads the connection any more.
// Not for the thread that reads it.
template <typename Value, typename... Args>
Value callWithin(SteadyTime end, sdbus::IProxy& proxy, const char* interface, const char* method,
                 const Args&... args) {
    using std::chrono::microseconds;
    constexpr std::chrono::milliseconds kPause{5};
    using Answer = std::pair<std::optional<sdbus::Error>, Value>;
    for (;;) {
        const auto left =
            std::chrono::duration_cast<microseconds>(end - std::chrono::steady_clock::now());
        const auto answered = std::make_shared<std::promise<Answer>>();
        auto future = answered->get_future();
        auto pending =
            proxy.callMethodAsync(method)
                .onInterface(interface)
                .withTimeout(std::max(left, microseconds(1)))
                .withArguments(args...)
                .uponReplyInvoke([answered](const sdbus::Error* error, Value value) {
                    answered->set_value({error == nullptr ? std::nullopt : std::optional(*error),
                                         std::move(value)});
                });
        if (future.wait_until(end) != std::future_status::ready) {
            pending.cancel();
            throw sdbus::Error("org.freedesktop.DBus.Error.NoReply", "no answer in time");
        }
        auto [error, value] = future.get();
        if (!error) return value;
        const bool again = wasNotCarried(*error) && std::chrono::steady_clock::now() + kPause < end;
        if (!again) throw *error;
        std::this_thread::sleep_for(kPause);
    }
}

}  // namespace qoz::host::vppd
