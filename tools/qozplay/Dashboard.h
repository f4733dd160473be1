// What --watch shows, as lines of text; knows nothing of the terminal.
#pragma once

#include "Gauges.h"

#include <host/control.h>

#include <string>
#include <vector>

namespace qozplay {

struct SessionView {
    std::string name;
    std::string state;
    Gauges::Reading gauges;
    double inRate = 0;  // frames a second, lately
    double outRate = 0;
    size_t sourcesLent = 0;
    size_t outputsLent = 0;
    std::vector<std::string> component;  // its dump; none: not asked for
};

struct RunView {
    double seconds = 0;
    bool ending = false;
    qoz::host::Counters host;
    uint64_t faultsFired = 0;
    std::vector<SessionView> sessions;
    std::vector<std::string> log;  // the last lines, newest last
};

struct Page {
    size_t columns = 80;
    size_t rows = 24;
    bool blocks = true;  // the sparkline in block characters, else in ASCII
};

// At most `rows` lines of at most `columns` characters. The log has the rest of the page, three
// lines at least.
std::vector<std::string> drawDashboard(const RunView& run, const Page& page);

// The last `width` values, scaled to the largest of them.
std::string sparkline(const std::vector<double>& values, size_t width, bool blocks);

}  // namespace qozplay
