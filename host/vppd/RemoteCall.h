// SPDX-License-Identifier: Apache-2.0
// Calls to objects in another process, with a time limit.
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

// Returns whether an error means that a call was not delivered, because the bus or one of the two
// processes had no room for the message or its descriptors. Such a call is never carried out and
// may be sent again.
inline bool wasNotDelivered(const sdbus::Error& error) {
    constexpr const char* kShortages[] = {"org.freedesktop.DBus.Error.LimitsExceeded",
                                          "org.freedesktop.DBus.Error.NoMemory",
                                          "System.Error.EMFILE", "System.Error.ENFILE"};
    return std::find(std::begin(kShortages), std::end(kShortages), error.getName()) !=
           std::end(kShortages);
}

// Calls a method and returns the value in its answer. A call that was not delivered is sent again
// while there is time. Throws sdbus::Error if the answer is an error or does not arrive by `end`.
//
// The function waits for a promise rather than for the connection, so that the wait ends even if
// the connection is no longer read. Must not be called on the thread that reads the connection.
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
        const bool again =
            wasNotDelivered(*error) && std::chrono::steady_clock::now() + kPause < end;
        if (!again) throw *error;
        std::this_thread::sleep_for(kPause);
    }
}

}  // namespace qoz::host::vppd
