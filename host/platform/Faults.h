// SPDX-License-Identifier: Apache-2.0
// The table of armed faults, from the side of the operations. host/control.h has the functions that
// arm faults.
#pragma once

#include <host/control.h>

#include <optional>

namespace qoz::host {

// Counts one call of `operation` and returns the fault that fires at this call, if any. Callable
// from any thread. Costs one relaxed load while no fault is armed.
std::optional<Fault> takeFault(const char* operation);

}  // namespace qoz::host
