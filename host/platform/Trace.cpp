#include <cutils/properties.h>
#include <host/control.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utils/Timers.h>
#include <utils/Trace.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <utility>

namespace qoz::host {
namespace {

struct Event {
    char phase;  // 'B' or 'E', as the file format has them
    long tid;
    nsecs_t at;
    std::string name;
};

struct Recording {
    std::mutex lock;
    std::vector<Event> events;
};

Recording& recording() {
    static Recording instance;
    return instance;
}

// Relaxed: a point that reads a stale value is traced or left out, nothing else hangs on it.
std::atomic<uint64_t> gEnabledTags{0};

void record(char phase, const char* name) {
    Recording& r = recording();
    const std::lock_guard lock(r.lock);
    r.events.push_back({phase, syscall(SYS_gettid), systemTime(), name});
}

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '"' || c == '\\') result += '\\';
        if (static_cast<unsigned char>(c) >= ' ') result += c;
    }
    return result;
}

void writeEvent(FILE* file, const Event& event, bool first) {
    fprintf(file, "%s\n{\"ph\":\"%c\",\"pid\":%d,\"tid\":%ld,\"ts\":%.3f", first ? "" : ",",
            event.phase, getpid(), event.tid, static_cast<double>(event.at) / 1000.0);
    if (event.phase == 'B') fprintf(file, ",\"name\":\"%s\"", escaped(event.name).c_str());
    fprintf(file, "}");
}

}  // namespace

void startTrace() {
    std::array<char, PROPERTY_VALUE_MAX> flags{};
    property_get("debug.atrace.tags.enableflags", flags.data(), "0");
    {
        Recording& r = recording();
        const std::lock_guard lock(r.lock);
        r.events.clear();
    }
    gEnabledTags.store(strtoull(flags.data(), nullptr, 0), std::memory_order_relaxed);
}

bool stopTrace(const std::string& path) {
    gEnabledTags.store(0, std::memory_order_relaxed);
    Recording& r = recording();
    const std::lock_guard lock(r.lock);
    const std::vector<Event> events = std::exchange(r.events, {});
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "we"), fclose);
    if (file == nullptr) return false;
    fprintf(file.get(), "{\"traceEvents\":[");
    for (size_t i = 0; i < events.size(); ++i)
        writeEvent(file.get(), events[i], i == 0);
    fprintf(file.get(), "\n]}\n");
    return fflush(file.get()) == 0 && ferror(file.get()) == 0;
}

}  // namespace qoz::host

uint64_t atrace_get_enabled_tags() {
    return qoz::host::gEnabledTags.load(std::memory_order_relaxed);
}

void atrace_begin_body(const char* name) {
    qoz::host::record('B', name);
}

void atrace_end_body() {
    qoz::host::record('E', "");
}
