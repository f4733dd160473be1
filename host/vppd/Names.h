// SPDX-License-Identifier: Apache-2.0
// The names of the service on D-Bus, and the time limit for calls.
#pragma once

#include <chrono>

namespace qoz::host::vppd {

constexpr char kBusName[] = "org.qoz.Vpp";
constexpr char kServicePath[] = "/org/qoz/Vpp";
constexpr char kSessionFolder[] = "/org/qoz/Vpp/sessions/";
constexpr char kCallbacksFolder[] = "/org/qoz/Vpp/callbacks/";
constexpr char kNoSession[] = "/";  // the object path that stands for no object

constexpr char kServiceInterface[] = "org.qoz.VppService1";
constexpr char kSessionInterface[] = "org.qoz.VppSession1";
constexpr char kCallbacksInterface[] = "org.qoz.VppCallbacks1";

// The D-Bus errors that answer a call with a transport error, and a call from a connection that the
// object does not serve.
constexpr char kDeadObject[] = "org.qoz.Vpp.Error.DeadObject";
constexpr char kAccessDenied[] = "org.freedesktop.DBus.Error.AccessDenied";

// The limit for one operation of a client. It holds even if the service or the bus hangs or has
// ended.
constexpr std::chrono::seconds kCallLimit{2};

}  // namespace qoz::host::vppd
