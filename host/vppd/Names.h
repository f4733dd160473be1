// SPDX-License-Identifier: Apache-2.0
// Where the service is found on the bus.
#pragma once

#include <chrono>

namespace qoz::host::vppd {

constexpr char kBusName[] = "org.qoz.Vpp";
constexpr char kServicePath[] = "/org/qoz/Vpp";
constexpr char kSessionFolder[] = "/org/qoz/Vpp/sessions/";
constexpr char kCallbacksFolder[] = "/org/qoz/Vpp/callbacks/";
constexpr char kNoSession[] = "/";

constexpr char kServiceInterface[] = "org.qoz.VppService1";
constexpr char kSessionInterface[] = "org.qoz.VppSession1";
constexpr char kCallbacksInterface[] = "org.qoz.VppCallbacks1";

// What a call with a transport error is answered with, and one of a stranger.
constexpr char kDeadObject[] = "org.qoz.Vpp.Error.DeadObject";
constexpr char kAccessDenied[] = "org.freedesktop.DBus.Error.AccessDenied";

// No operation of a client takes longer, whatever has become of the service, the bus or the
// client's own process.
constexpr std::chrono::seconds kCallLimit{2};

}  // namespace qoz::host::vppd
