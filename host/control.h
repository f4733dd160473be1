// SPDX-License-Identifier: Apache-2.0
// The host simulator's switchboard: how tests, tools and benches steer and watch what stands behind
// the platform's names. Nothing under src/ or include/ knows this header. Every operation may be
// called from any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qoz::host {

// ---- System properties ------------------------------------------------------------------------

// False when the name is not a property name or the value is longer than 91 characters.
bool setProperty(const std::string& name, const std::string& value);
void clearProperties();

// Reads lines of name=value; blank lines and lines that begin with # are skipped. On false, `error`
// names the line. The file named by the environment's QOZ_PROPERTIES is read before the first
// look-up.
bool loadProperties(const std::string& path, std::string* error);

// ---- Log --------------------------------------------------------------------------------------

struct LogLine {
    int priority;  // an android_LogPriority
    std::string tag;
    std::string text;
};
using LogSink = std::function<void(const LogLine&)>;

// Replaces standard error; an empty sink brings it back. Returns the sink that was in place. Lines
// of one process reach the sink one at a time.
LogSink setLogSink(LogSink sink);

// ---- Trace ------------------------------------------------------------------------------------

// Records trace points from now on, while bit 1 (graphics) of the property
// debug.atrace.tags.enableflags is set; stopTrace() writes Chrome trace JSON. False: cannot write.
// A thread has room for 131,072 events; what comes after is left out, and counted in the file.
void startTrace();
bool stopTrace(const std::string& path);

// Beside the library's own trace points, a client's and a tool's. While no trace runs each costs
// one relaxed load.
bool tracing();

// From construction to destruction, on one thread. Names have 79 characters at most.
class TraceSlice {
  public:
    explicit TraceSlice(const char* name);
    ~TraceSlice();

    TraceSlice(const TraceSlice&) = delete;
    TraceSlice& operator=(const TraceSlice&) = delete;

  private:
    const bool mOn;
};

void traceCounter(const std::string& name, int64_t value);

// An arrow from the slice that a point was taken in to the slice in which traceArrow() is called.
struct TracePoint {
    int32_t tid = 0;
    int64_t at = 0;  // nanoseconds
};
TracePoint tracePoint();
void traceArrow(const char* name, const TracePoint& from);

// ---- What exists ------------------------------------------------------------------------------

struct Counters {
    uint64_t graphicBuffersMade = 0;
    uint64_t graphicBuffersLive = 0;
    uint64_t graphicBytesLive = 0;
    uint64_t nativeHandlesLive = 0;
    uint64_t bindersLive = 0;  // strong references to binders
    uint64_t sessionsMade = 0;
    uint64_t sessionsLive = 0;
};
Counters counters();
int openDescriptors();  // of this process

// Calls of set_sched_policy and set_cpuset_policy since the start of the process.
struct SchedCall {
    std::string call;
    int tid;
    int policy;
};
std::vector<SchedCall> schedCalls();

// ---- Faults -----------------------------------------------------------------------------------

enum class FaultKind {
    Code,       // answer with `code`
    Transport,  // the call fails below its result
    Drop,       // no answer
    Late,       // answer `code` milliseconds later
    Twice,      // answer twice
    Unknown,    // answer with a cookie nobody gave
    Keep,       // answer with `code`, and do it all the same
    Swap,       // answer after the answer that follows
    Stray,      // before the answer one that nobody waits for, of values out of all range
    Within,     // answer from within the call, on the thread that makes it
    Die,        // the service dies
};

// One row of the table. Operations: those of IVpp and IVppService by name ("queueBuf",
// "getNewVppSession"), the callbacks ("outputBufferDone"), the converter's ("Configure",
// "RGBToNV12", "MvBufferGeneration", "GetMVbufferSize"), and "allocate" (graphic buffers),
// "native_handle_create".
struct Fault {
    std::string operation;
    FaultKind kind = FaultKind::Code;
    int32_t code = 1;
    uint64_t nth = 1;    // fires at the nth call from when it is armed
    uint64_t count = 1;  // and at this many calls in all; 0: from then on
};

// "queueBuf=7", "queueBuf=7@3" (third call), "flush=drop@2+" (second call and all after),
// "drain=late:500". Words: drop, late:MS, twice, unknown, keep:CODE, swap, stray,
// transport, within, die. An operation that is not named above is an error.
std::optional<Fault> parseFault(const std::string& text, std::string* error);

// The text that parseFault() reads as this; of the counts it knows 1 and 0.
std::string toText(const Fault& fault);

void armFault(const Fault& fault);
void clearFaults();
uint64_t faultsFired();
std::vector<Fault> unfiredFaults();  // armed, and not one call has met them

// ---- The VPP service --------------------------------------------------------------------------

// A VPP service registered under its instance name, from construction to destruction; the end of
// the object is the death of the service: it lets go of every session, callback and buffer.
class VppService {
  public:
    VppService();
    ~VppService();

    VppService(const VppService&) = delete;
    VppService& operator=(const VppService&) = delete;

  private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

}  // namespace qoz::host
