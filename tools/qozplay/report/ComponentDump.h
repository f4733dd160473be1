// SPDX-License-Identifier: Apache-2.0
// What a component says of itself.
#pragma once

#include <qoz/VppComponent.h>

#include <string>
#include <vector>

namespace qozplay {

// One line each; none when there is no memory to write it to.
std::vector<std::string> dumpLines(const android::VppComponent& component);

// Into the log, tag qozplay, for information.
void logDump(const android::VppComponent& component);

}  // namespace qozplay
