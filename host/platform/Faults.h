// SPDX-License-Identifier: Apache-2.0
// The fault table from the side of what fails. Arming is in host/control.h.
#pragma once

#include <host/control.h>

#include <optional>

namespace qoz::host {

// Counts one call of `operation`; the armed fault that fires at this call, if any. Costs one
// relaxed load while nothing is armed.
std::optional<Fault> takeFault(const char* operation);

}  // namespace qoz::host
