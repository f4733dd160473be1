// SPDX-License-Identifier: Apache-2.0
// The control interface of the host simulator. Tests, tools and benches use it to configure and
// observe the simulated platform, converter and service. Nothing under src/ or include/ includes
// this header. Every operation may be called from any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qoz::host {

// ---- System properties ------------------------------------------------------------------------

// Returns false if `name` is not a valid property name or `value` is longer than 91 characters.
bool setProperty(const std::string& name, const std::string& value);
void clearProperties();

// Sets the properties in a file of name=value lines. Skips blank lines and lines that begin with #.
// Stops at the first line that is not valid, sets `error` and returns false. The file that the
// environment variable QOZ_PROPERTIES names is read before the first property is read or set.
bool loadProperties(const std::string& path, std::string* error);

// ---- Log --------------------------------------------------------------------------------------

struct LogLine {
    int priority;  // an android_LogPriority
    std::string tag;
    std::string text;
};
using LogSink = std::function<void(const LogLine&)>;

// Sends log lines to `sink` instead of standard error; an empty sink restores standard error.
// Returns the previous sink. The sink is called for one line at a time.
LogSink setLogSink(LogSink sink);

// ---- Trace ------------------------------------------------------------------------------------

// startTrace() reads the property debug.atrace.tags.enableflags and starts recording if bit 1
// (graphics) is set. stopTrace() ends the recording and writes it as Chrome trace JSON; it returns
// false if it cannot write the file. Up to 131,072 events are recorded for each thread; the file
// contains the number of events that were dropped.
void startTrace();
bool stopTrace(const std::string& path);

// Returns true while a trace is recorded. TraceSlice, traceCounter() and traceArrow() add trace
// points of clients and tools to those of the library. While no trace is recorded, each costs one
// relaxed load.
bool tracing();

// Records a slice from construction to destruction, on one thread. Names are cut to 79 characters.
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

// traceArrow() draws an arrow from the slice in which `from` was taken to the slice in which
// traceArrow() is called.
struct TracePoint {
    int32_t tid = 0;
    int64_t at = 0;  // nanoseconds
};
TracePoint tracePoint();
void traceArrow(const char* name, const TracePoint& from);

// ---- Resource counters ------------------------------------------------------------------------

// "Made" counts since the start of the process, "live" what exists now.
struct Counters {
    uint64_t graphicBuffersMade = 0;
    uint64_t graphicBuffersLive = 0;
    uint64_t graphicBytesLive = 0;
    uint64_t nativeHandlesLive = 0;
    uint64_t bindersLive = 0;  // strong references to binders
    uint64_t sessionsMade = 0;
    uint64_t sessionsLive = 0;
    // How often, since the start of the process, a session of this process was given memory that it
    // still held, as pixels or as side buffers of a frame with another timestamp.
    uint64_t memoryQueuedTwice = 0;
};
Counters counters();
int openDescriptors();  // of this process

// Calls to set_sched_policy and set_cpuset_policy since the start of the process.
struct SchedCall {
    std::string call;
    int tid;
    int policy;
};
std::vector<SchedCall> schedCalls();

// ---- Faults -----------------------------------------------------------------------------------

// What a fault does to an operation. docs/host-simulator.md describes the effects in detail.
enum class FaultKind {
    Code,       // answers with `code`
    Transport,  // the call has a transport error
    Drop,       // sends no answer
    Late,       // answers `code` milliseconds later
    Twice,      // answers twice
    Unknown,    // answers with an unknown cookie
    Keep,       // answers with `code`, but carries out the operation
    Swap,       // answers after the next answer
    Stray,      // first sends an unsolicited answer with out-of-range values
    Within,     // answers from within the call, on the thread that makes it
    Die,        // the service dies
};

// One fault. `operation` is an operation of IVpp or IVppService ("queueBuf", "getNewVppSession"), a
// callback ("outputBufferDone"), an operation of the converter ("Configure", "RGBToNV12",
// "MvBufferGeneration", "GetMVbufferSize"), "allocate" (graphic buffers) or "native_handle_create".
struct Fault {
    std::string operation;
    FaultKind kind = FaultKind::Code;
    int32_t code = 1;
    uint64_t nth = 1;    // fires first at the nth call after it was armed
    uint64_t count = 1;  // number of consecutive calls at which it fires; 0 for all from then on
};

// Parses the text of a fault: "queueBuf=7", "queueBuf=7@3" (third call), "flush=drop@2+" (second
// call and all later calls), "drain=late:500". Besides a code, the answer is one of drop, late:MS,
// twice, unknown, keep:CODE, swap, stray, transport, within and die. If the text is malformed or
// names an operation that has no faults, sets `error` and returns nullopt.
std::optional<Fault> parseFault(const std::string& text, std::string* error);

// Returns the text that parseFault() parses to this fault. The text can express only the counts 1
// and 0.
std::string toText(const Fault& fault);

void armFault(const Fault& fault);
void clearFaults();                  // disarms all faults and resets the count
uint64_t faultsFired();              // number of times that a fault has fired
std::vector<Fault> unfiredFaults();  // armed faults that have never fired

// ---- The VPP service --------------------------------------------------------------------------

// A VPP service in this process, registered under its instance name for the life of the object.
// Destroying the object is the death of the service, which releases every session, callback object
// and buffer.
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
