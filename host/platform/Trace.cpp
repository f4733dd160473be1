// SPDX-License-Identifier: Apache-2.0
// Recording: each thread writes into its own share under a lock that nobody else wants while the
// trace runs.
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

constexpr size_t kShare = 1 << 17;  // events of one thread; 14 MiB

void setEnabledTags(uint64_t tags) {
    __atomic_store_n(&atrace_enabled_tags, tags, __ATOMIC_RELAXED);
}

// What one thread records. The lock is contended only when the trace is written.
struct Share {
    explicit Share(TraceThread own) : thread(std::move(own)) {}

    std::mutex lock;
    TraceThread thread GUARDED_BY(lock);
};

struct Recording {
    std::mutex lock;
    std::vector<std::shared_ptr<Share>> shares GUARDED_BY(lock);  // of this trace
    std::atomic<uint64_t> number{0};  // which trace it is; one that is seen late costs a few events
};

Recording& recording() {
    static auto* instance = new Recording;  // threads that never end use it
    return *instance;
}

std::shared_ptr<Share> newShare(Recording& r) {
    TraceThread thread;
    thread.events.reserve(kShare);  // never moved; memory that is not used is not touched
    thread.tid = static_cast<int32_t>(syscall(SYS_gettid));
    std::array<char, 16> name{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    thread.name = name.data();
    auto share = std::make_shared<Share>(std::move(thread));
    const std::lock_guard lock(r.lock);
    r.shares.push_back(share);
    return share;
}

// Made at the thread's first event of a trace.
Share& ownShare() {
    thread_local std::shared_ptr<Share> share;
    thread_local uint64_t number = 0;
    Recording& r = recording();
    const uint64_t current = r.number.load(std::memory_order_relaxed);
    if (share == nullptr || number != current) {
        share = newShare(r);
        number = current;
    }
    return *share;
}

TraceEvent event(TraceEvent::Kind kind, const char* name) {
    TraceEvent made{};
    made.kind = kind;
    made.at = systemTime();
    std::strncpy(made.name.data(), name, made.name.size() - 1);
    return made;
}

// A trace that memory is too short for has gaps; the program goes on.
void record(const TraceEvent& made) try {
    Share& share = ownShare();
    const std::lock_guard lock(share.lock);
    if (share.thread.events.size() < kShare) {
        share.thread.events.push_back(made);
    } else {
        ++share.thread.dropped;
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
        r.shares.clear();
        r.number.fetch_add(1, std::memory_order_relaxed);
    }
    setEnabledTags(strtoull(flags.data(), nullptr, 0));
}

bool stopTrace(const std::string& path) {
    setEnabledTags(0);
    std::vector<std::shared_ptr<Share>> shares;
    {
        Recording& r = recording();
        const std::lock_guard lock(r.lock);
        shares.swap(r.shares);
    }
    std::vector<TraceThread> threads;
    for (const std::shared_ptr<Share>& share : shares) {
        const std::lock_guard lock(share->lock);
        threads.push_back(std::move(share->thread));
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
