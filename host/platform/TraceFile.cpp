// SPDX-License-Identifier: Apache-2.0
// Writes a trace as Chrome trace JSON, which chrome://tracing and ui.perfetto.dev display.
#include <host/platform/TraceRecording.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <map>
#include <memory>

namespace qoz::host {
namespace {

// Returns the text for use within a JSON string. Control characters are left out.
std::string escaped(const char* text) {
    std::string result;
    for (; *text != '\0'; ++text) {
        if (*text == '"' || *text == '\\') result += '\\';
        if (static_cast<unsigned char>(*text) >= ' ') result += *text;
    }
    return result;
}

// One file, written once from beginning to end.
class TraceFile {
  public:
    explicit TraceFile(const std::string& path) : mFile(fopen(path.c_str(), "we"), fclose) {}

    bool write(const std::vector<TraceThread>& threads, int64_t end) {
        if (mFile == nullptr) return false;
        fprintf(mFile.get(), "{\"traceEvents\":[");
        name("process_name", getpid(), program_invocation_short_name);
        uint64_t dropped = 0;
        for (const TraceThread& thread : threads) {
            if (thread.dropped != 0) mFullSince[thread.tid] = thread.events.back().at;
        }
        for (const TraceThread& thread : threads) {
            name("thread_name", thread.tid, thread.name.c_str());
            write(thread, end);
            dropped += thread.dropped;
        }
        fprintf(mFile.get(), "\n],\"displayTimeUnit\":\"ms\",\"otherData\":{\"dropped\":%llu}}\n",
                static_cast<unsigned long long>(dropped));
        return fflush(mFile.get()) == 0 && ferror(mFile.get()) == 0;
    }

  private:
    // Writes the events of one thread. Slices must be nested, so an end without a beginning, whose
    // slice began before the trace, is left out, and slices that are still open are closed at
    // `end`.
    void write(const TraceThread& thread, int64_t end) {
        std::vector<const TraceEvent*> open;
        for (const TraceEvent& event : thread.events) {
            switch (event.kind) {
                case TraceEvent::Kind::Begin:
                    open.push_back(&event);
                    put("B", thread.tid, event.at, event.name.data());
                    countersOf(thread, event);
                    break;
                case TraceEvent::Kind::End:
                    if (open.empty()) break;
                    put("E", thread.tid, event.at, open.back()->name.data());
                    open.pop_back();
                    break;
                case TraceEvent::Kind::Counter:
                    counter(thread.tid, event.at, event.name.data(), event.value);
                    break;
                case TraceEvent::Kind::Arrow:
                    arrow(thread.tid, event);
                    break;
            }
        }
        for (; !open.empty(); open.pop_back())
            put("E", thread.tid, end, open.back()->name.data());
    }

    // Writes the numbers in the names of the library's two markers as counters. The name of the
    // thread identifies the stream: the thread that queues buffers sets the marker with the
    // outstanding buffers, and the output worker the one with the buffers that wait for delivery.
    void countersOf(const TraceThread& thread, const TraceEvent& event) {
        const std::string whose = " (" + thread.name + ")";
        int inputs = 0;
        int outputs = 0;
        const int read =
            sscanf(event.name.data(), "VPP input port buffer: %d , VPP output port buffer: %d",
                   &inputs, &outputs);
        if (read == 2) {
            counter(thread.tid, event.at, "VPP input port" + whose, inputs);
            counter(thread.tid, event.at, "VPP output port" + whose, outputs);
        }
        int waiting = 0;
        if (sscanf(event.name.data(), "%*[a-zA-Z]: %d buffer in Queue", &waiting) == 1) {
            counter(thread.tid, event.at, "waiting for delivery" + whose, waiting);
        }
    }

    void counter(int32_t tid, int64_t at, const std::string& counted, int64_t value) {
        put("C", tid, at, counted.c_str(), ",\"args\":{\"value\":" + std::to_string(value) + "}");
    }

    // Writes both ends of an arrow. An arrow is left out if events of the thread that it starts
    // from were dropped by then, because its slice may be missing. "bp":"e" attaches the end to the
    // enclosing slice.
    void arrow(int32_t tid, const TraceEvent& event) {
        const auto full = mFullSince.find(event.from.tid);
        if (full != mFullSince.end() && event.from.at > full->second) return;
        const std::string id = ",\"id\":" + std::to_string(++mArrows);
        put("s", event.from.tid, event.from.at, event.name.data(), id);
        put("f", tid, event.at, event.name.data(), id + R"(,"bp":"e")");
    }

    // Writes the name of the process or of a thread.
    void name(const char* what, int32_t tid, const char* text) {
        put("M", tid, 0, what, ",\"args\":{\"name\":\"" + escaped(text) + "\"}");
    }

    // Writes one event. `rest` is the text of further members. Each event has a name and a
    // category, because some viewers require them.
    void put(const char* phase, int32_t tid, int64_t at, const char* what,
             const std::string& rest = "") {
        fprintf(mFile.get(),
                "%s\n{\"ph\":\"%s\",\"pid\":%d,\"tid\":%d,\"ts\":%.3f,\"cat\":\"qoz\","
                "\"name\":\"%s\"%s}",
                mFirst ? "" : ",", phase, getpid(), tid, static_cast<double>(at) / 1000.0,
                escaped(what).c_str(), rest.c_str());
        mFirst = false;
    }

    const std::unique_ptr<FILE, int (*)(FILE*)> mFile;
    bool mFirst = true;
    // For each thread that dropped events, the time of its last recorded event.
    std::map<int32_t, int64_t> mFullSince;
    uint64_t mArrows = 0;
};

}  // namespace

bool writeTrace(const std::string& path, const std::vector<TraceThread>& threads, int64_t end) {
    return TraceFile(path).write(threads, end);
}

}  // namespace qoz::host
