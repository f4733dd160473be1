// SPDX-License-Identifier: Apache-2.0
// Bounds for the figures of a run, as --budget gives them.
#pragma once

#include <string>
#include <vector>

#include "qozplay/report/Stats.h"

namespace qozplay {

// "p95=8ms", "lost=0", "interpolated=100". Throws BadInput.
Limit parseLimit(const std::string& text);

// One sentence for each figure beyond its bound.
std::vector<std::string> overBudget(const std::vector<Limit>& budget, const SessionStats& stats);

}  // namespace qozplay
