// SPDX-License-Identifier: Apache-2.0
// The recording of a trace. Each thread records into memory of its own, under a lock of its own, so
// that recording threads never wait for each other.
#include <android-base/thread_annotations.h>
#include <cutils/properties.h>
#include <host/control.h>
#include <host/platform/TraceRecording.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utils/Timers.h>
#include <utils/Trace.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

namespace qoz::host {
namespace {

constexpr size_t kEventsPerThread = 1 << 17;  // 14 MiB

void setEnabledTags(uint64_t tags) {
    __atomic_store_n(&atrace_enabled_tags, tags, __ATOMIC_RELAXED);
}

// The events of one thread, owned by the thread and by the Recording. Only stopTrace() takes the
// lock from another thread.
struct ThreadRecording {
    explicit ThreadRecording(TraceThread own) : thread(std::move(own)) {}

    std::mutex lock;
    TraceThread thread GUARDED_BY(lock);
};

// The current trace. startTrace() discards the events of the previous trace and increases `number`,
// from which a thread recognizes that its events belong to an older trace. The accesses to `number`
// are relaxed: a thread that sees the new number late only loses a few events.
struct Recording {
    std::mutex lock;
    std::vector<std::shared_ptr<ThreadRecording>> threads GUARDED_BY(lock);
    std::atomic<uint64_t> number{0};
};

// Never destroyed, because detached threads may still record when the process exits.
Recording& recording() {
    static auto* instance = new Recording;
    return *instance;
}

// Creates the memory for the events of the calling thread and adds it to the trace.
std::shared_ptr<ThreadRecording> newThreadRecording(Recording& r) {
    TraceThread thread;
    // Avoids reallocation while the trace runs. Pages that are never written use no memory.
    thread.events.reserve(kEventsPerThread);
    thread.tid = static_cast<int32_t>(syscall(SYS_gettid));
    std::array<char, 16> name{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    thread.name = name.data();
    auto mine = std::make_shared<ThreadRecording>(std::move(thread));
    const std::lock_guard lock(r.lock);
    r.threads.push_back(mine);
    return mine;
}

// Returns the memory for the events of the calling thread. It is created at the first event of the
// thread in each trace.
ThreadRecording& threadRecording() {
    thread_local std::shared_ptr<ThreadRecording> mine;
    thread_local uint64_t number = 0;
    Recording& r = recording();
    const uint64_t current = r.number.load(std::memory_order_relaxed);
    if (mine == nullptr || number != current) {
        mine = newThreadRecording(r);
        number = current;
    }
    return *mine;
}

TraceEvent event(TraceEvent::Kind kind, const char* name) {
    TraceEvent made{};
    made.kind = kind;
    made.at = systemTime();
    std::strncpy(made.name.data(), name, made.name.size() - 1);
    return made;
}

// On allocation failure the event is missing from the trace and the program continues.
void record(const TraceEvent& made) try {
    ThreadRecording& mine = threadRecording();
    const std::lock_guard lock(mine.lock);
    if (mine.thread.events.size() < kEventsPerThread) {
        mine.thread.events.push_back(made);
    } else {
        ++mine.thread.dropped;
    }
} catch (const std::bad_alloc&) {
}

}  // namespace

void startTrace() {
    std::array<char, PROPERTY_VALUE_MAX> flags{};
    property_get("debug.atrace.tags.enableflags", flags.data(), "0");
    {
        Recording& r = recording();
        const std::lock_guard lock(r.lock);
        r.threads.clear();
        r.number.fetch_add(1, std::memory_order_relaxed);
    }
    setEnabledTags(strtoull(flags.data(), nullptr, 0));
}

bool stopTrace(const std::string& path) {
    setEnabledTags(0);
    std::vector<std::shared_ptr<ThreadRecording>> recorded;
    {
        Recording& r = recording();
        const std::lock_guard lock(r.lock);
        recorded.swap(r.threads);
    }
    std::vector<TraceThread> threads;
    for (const std::shared_ptr<ThreadRecording>& each : recorded) {
        const std::lock_guard lock(each->lock);
        threads.push_back(std::move(each->thread));
    }
    return writeTrace(path, threads, systemTime());
}

bool tracing() {
    return (atrace_get_enabled_tags() & ATRACE_TAG_GRAPHICS) != 0;
}

TraceSlice::TraceSlice(const char* name) : mOn(tracing()) {
    if (mOn) record(event(TraceEvent::Kind::Begin, name));
}

TraceSlice::~TraceSlice() {
    if (mOn) record(event(TraceEvent::Kind::End, ""));
}

void traceCounter(const std::string& name, int64_t value) {
    if (!tracing()) return;
    TraceEvent made = event(TraceEvent::Kind::Counter, name.c_str());
    made.value = value;
    record(made);
}

TracePoint tracePoint() {
    return {static_cast<int32_t>(syscall(SYS_gettid)), systemTime()};
}

void traceArrow(const char* name, const TracePoint& from) {
    if (!tracing()) return;
    TraceEvent made = event(TraceEvent::Kind::Arrow, name);
    made.from.at = from.at;
    made.from.tid = from.tid;
    record(made);
}

}  // namespace qoz::host

uint64_t atrace_enabled_tags = 0;

void atrace_begin_body(const char* name) {
    using qoz::host::TraceEvent;
    qoz::host::record(qoz::host::event(TraceEvent::Kind::Begin, name));
}

void atrace_end_body() {
    using qoz::host::TraceEvent;
    qoz::host::record(qoz::host::event(TraceEvent::Kind::End, ""));
}
