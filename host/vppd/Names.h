// Where the service is found on the bus.
#pragma once

#include <chrono>

namespace qoz::host::vppd {

constexpr char kBusName[] = "org.qoz.Vpp";
constexpr char kServicePath[] = "/org/qoz/Vpp";
constexpr char kSessionFolder[] = "/org/qoz/Vpp/sessions/";
constexpr char kCallbacksFolder[] = "/org/qoz/Vpp/callbacks/";
constexpr char kNoSession[] = "/";

// What a call that fails below its result is answered with.
constexpr char kDeadObject[] = "org.qoz.Vpp.Error.DeadObject";

// A peer that hangs holds a call up no longer than this, in either direction.
constexpr std::chrono::seconds kCallLimit{2};

// A start is no call: the bus starts a process first.
constexpr std::chrono::seconds kStartLimit{5};

}  // namespace qoz::host::vppd
