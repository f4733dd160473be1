#include "Dashboard.h"

#include "Stats.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace qozplay {
namespace {

constexpr size_t kLeastLog = 3;  // lines
constexpr size_t kSparkWidth = 40;
constexpr std::array<const char*, 8> kBlocks{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::array<const char*, 8> kAscii{"_", ".", "-", "~", "=", "+", "*", "#"};

using Lines = std::vector<std::string>;

// The first line of a text. Characters, not bytes: what continues one in UTF-8 begins with the bits
// 10.
std::string clipped(const std::string& text, size_t columns) {
    std::string line = text.substr(0, text.find('\n'));
    size_t characters = 0;
    for (size_t i = 0; i < line.size(); ++i) {
        const bool begins = (static_cast<unsigned char>(line[i]) & 0xC0U) != 0x80U;
        if (begins && ++characters > columns) return line.substr(0, i);
    }
    return line;
}

void addHead(const RunView& run, Lines* lines) {
    constexpr double kMegabyte = 1 << 20;
    lines->push_back(format("qozplay --watch   %.1f s   faults fired %llu   %s", run.seconds,
                            big(run.faultsFired),
                            run.ending ? "ending ..." : "q: end   d: components"));
    lines->push_back(
        format("host    %llu graphic buffers, %.1f MB (%llu made)   %llu handles   "
               "%llu binders   %llu sessions",
               big(run.host.graphicBuffersLive),
               static_cast<double>(run.host.graphicBytesLive) / kMegabyte,
               big(run.host.graphicBuffersMade), big(run.host.nativeHandlesLive),
               big(run.host.bindersLive), big(run.host.sessionsLive)));
}

void addSession(const SessionView& session, bool blocks, Lines* lines) {
    const Gauges::Reading& gauges = session.gauges;
    lines->emplace_back();
    lines->push_back(
        format("%-10s %-8s in %llu (%.1f fps)   out %llu (%.1f fps): %llu own, %llu made",
               session.name.c_str(), session.state.c_str(), big(gauges.in), session.inRate,
               big(gauges.own + gauges.made), session.outRate, big(gauges.own), big(gauges.made)));
    lines->push_back(format("  lent     %zu sources, %zu outputs   %zu frames under way",
                            session.sourcesLent, session.outputsLent, gauges.underWay));
    lines->push_back(format("  latency  p50 %.1f  p99 %.1f ms  ", percentile(gauges.latencies, 0.5),
                            percentile(gauges.latencies, 0.99)) +
                     sparkline(gauges.latencies, kSparkWidth, blocks));
    lines->insert(lines->end(), session.component.begin(), session.component.end());
}

void addLog(const Lines& log, size_t room, Lines* lines) {
    if (log.empty() || room < 2) return;
    lines->emplace_back("log");
    const size_t shown = std::min(room - 1, log.size());
    lines->insert(lines->end(), log.end() - static_cast<std::ptrdiff_t>(shown), log.end());
}

}  // namespace

std::string sparkline(const std::vector<double>& values, size_t width, bool blocks) {
    const size_t first = values.size() - std::min(values.size(), width);
    double most = 0;
    for (size_t i = first; i < values.size(); ++i)
        most = std::max(most, values[i]);
    const auto& steps = blocks ? kBlocks : kAscii;
    std::string line;
    for (size_t i = first; i < values.size(); ++i) {
        const double share = most > 0 ? values[i] / most : 0;
        const auto step = static_cast<size_t>(std::lround(share * (steps.size() - 1)));
        line += steps.at(step);
    }
    return line;
}

Lines drawDashboard(const RunView& run, const Page& page) {
    Lines lines;
    addHead(run, &lines);
    for (const SessionView& session : run.sessions)
        addSession(session, page.blocks, &lines);
    const size_t logRows = std::min(page.rows, run.log.empty() ? 0 : kLeastLog + 1);
    lines.resize(std::min(lines.size(), page.rows - logRows));
    addLog(run.log, page.rows - lines.size(), &lines);
    for (std::string& line : lines)
        line = clipped(line, page.columns);
    return lines;
}

}  // namespace qozplay
