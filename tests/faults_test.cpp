// SPDX-License-Identifier: Apache-2.0
// A table of faults in the surroundings of a stream. For each fault, no operation may hang, no
// buffer may be lost except those that the fault itself loses, and the component must work again
// when the fault is gone.
//
// If QOZ_WRITE_DOCS names a folder, a run of the whole table writes faults.md there.
#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <latch>
#include <limits>
#include <set>
#include <sstream>

#include "support/FaultScenario.h"
#include "support/Fixture.h"

namespace qoz::test {
namespace {

using host::Fault;
using host::FaultKind;
using Script = void (*)(FaultScenario&);

// The additional time that an operation may take on a busy machine. The test shows that a wait
// ends, and that one operation waits for one limit in total, even if several answers are missing.
// It does not measure the wait exactly.
constexpr std::chrono::milliseconds kSlack = kSanitized ? 3000ms : 1000ms;
constexpr std::chrono::milliseconds kRealWait = 3000ms;

void playOn(FaultScenario& play) {
    play.playOn();
}

// One row of the table: the faults, and the steps of the client during which they fire.
struct Row {
    std::string name;  // first column of the table in the documentation
    std::vector<Fault> faults = {};
    Script script = playOn;
    ConfigParams params = {1, 0, 1, 0};
    std::vector<std::pair<std::string, std::string>> properties = {};
    bool realWait = false;
    size_t doubles = 0;  // number of buffers that the script itself queues twice
    bool throws = false;

    bool has(FaultKind kind) const {
        return std::ranges::any_of(faults, [kind](const Fault& f) { return f.kind == kind; });
    }
    // The number of output buffers that are not returned because of the faults.
    size_t lossy() const {
        return static_cast<size_t>(std::ranges::count_if(faults, [](const Fault& f) {
            if (f.operation != "queueBuf" && f.operation != "outputBufferDone") return false;
            return f.kind == FaultKind::Transport || f.kind == FaultKind::Drop ||
                   f.kind == FaultKind::Unknown;
        }));
    }
    size_t mayDouble() const {
        return doubles + (has(FaultKind::Twice) || has(FaultKind::Keep) ? 1 : 0);
    }
    friend void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }
};

// An operation or a callback of the service, with the kinds of faults that it can have.
struct Operation {
    const char* name;
    uint64_t nth;      // number of the call at which the fault fires
    const char* fits;  // letters of kKinds
};

constexpr Operation kOperations[] = {{"getNewVppSession", 1, "CTDLX"},
                                     {"initSession", 1, "CKTLX"},
                                     {"setCtrlVppMode", 1, "CKTLX"},
                                     {"setCtrlFrc", 1, "CKTLX"},
                                     {"setCtrlAis", 1, "CTLX"},
                                     {"setParameter", 2, "CTLX"},
                                     {"open", 1, "CKTLX"},
                                     {"queueBuf", 5, "CKTDLWUSYX"},
                                     {"flush", 2, "CKTDLWNX"},
                                     {"reconfigure", 1, "CKTDLWNX"},
                                     {"drain", 1, "CKTDLWNX"},
                                     {"close", 1, "CTLX"},
                                     {"terminateSession", 1, "CTLX"},
                                     {"inputBufferDone", 2, "CTDLWUSYX"},
                                     {"outputBufferDone", 2, "CTDLWUSYX"},
                                     {"eventFlushDone", 2, "CTDLWSYX"},
                                     {"eventReconfigDone", 1, "CTDLWSYX"},
                                     {"eventDrainDone", 1, "CTDLWSYX"}};

constexpr std::tuple<char, FaultKind, const char*> kKinds[] = {
    {'C', FaultKind::Code, "answers with an error"},
    {'K', FaultKind::Keep, "is carried out, but returns an error"},
    {'T', FaultKind::Transport, "has a transport error"},
    {'D', FaultKind::Drop, "is not answered"},
    {'L', FaultKind::Late, "is late"},
    {'W', FaultKind::Twice, "is answered twice"},
    {'U', FaultKind::Unknown, "has an unknown cookie"},
    {'S', FaultKind::Swap, "arrives after the next one"},
    {'Y', FaultKind::Stray, "arrives after an unsolicited one with absurd values"},
    {'N', FaultKind::Within, "is answered from within the call"},
    {'X', FaultKind::Die, "kills the service"}};

void addService(std::vector<Row>& rows) {
    for (const auto& [operation, nth, fits] : kOperations) {
        for (const auto& [letter, kind, word] : kKinds) {
            if (std::string(fits).find(letter) == std::string::npos) continue;
            const bool late = kind == FaultKind::Late;
            const int32_t code = late ? static_cast<int32_t>(kLate.count()) : 7;
            Row row{std::string(operation) + " " + word, {{operation, kind, code, nth, 1}}};
            if (row.faults[0].operation == "setCtrlAis") row.params = {2, 0, 0, 0};
            rows.push_back(row);
        }
    }
    for (const char* operation : {"eventFlushDone", "eventReconfigDone"}) {
        rows.push_back({std::string(operation) + " is not answered, full wait",
                        {{operation, FaultKind::Drop, 0, 2, 1}}});
        rows.back().realWait = true;
    }
    rows.push_back({"queueBuf of a source is carried out, but returns an error",
                    {{"queueBuf", FaultKind::Keep, 7, 1, 1}}});
}

void withFewDescriptors(FaultScenario& play) {
    rlimit before = {};
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit few = before;
    few.rlim_cur = static_cast<rlim_t>(host::openDescriptors()) + 2;
    setrlimit(RLIMIT_NOFILE, &few);
    play.frames(6, 64, 48);
    setrlimit(RLIMIT_NOFILE, &before);
    play.playOn();
}

// Sets a default stack size that is larger than the address space, so that no thread can be
// created.
void withoutThreads(FaultScenario& play) {
    play.disable();
    pthread_attr_t before;
    pthread_attr_t none;
    pthread_getattr_default_np(&before);
    pthread_getattr_default_np(&none);
    pthread_attr_setstacksize(&none, size_t{1} << 60);
    pthread_setattr_default_np(&none);
    play.start({1, 0, 1, 0});
    pthread_setattr_default_np(&before);
    play.playOn();
}

void addPlatform(std::vector<Row>& rows) {
    for (const char* operation : {"allocate", "native_handle_create"}) {
        // The component's calls for the first and the second frame; the calls between them are the
        // client's.
        for (const uint64_t nth : {1, 2, 3, 16, 17, 18}) {
            for (const uint64_t count : {1, 6}) {
                rows.push_back({std::string(operation) + " fails at call " + std::to_string(nth) +
                                    (count == 1 ? "" : " and the five after"),
                                {{operation, FaultKind::Code, 1, nth, count}}});
            }
        }
    }
    rows.push_back({.name = "two descriptors left", .script = withFewDescriptors});
    rows.push_back({.name = "no thread for the worker", .script = withoutThreads});
    for (const char* name : {"vendor.qoz.log.msg", "vendor.qoz.maxw"}) {
        for (const char* value : {"xyz", "99999999999999999999"}) {
            rows.push_back({.name = std::string("property ") + name + " is " + value,
                            .properties = {{name, value}},
                            .throws = true});
        }
    }
    const std::pair<const char*, const char*> absurd[] = {{"vendor.qoz.maxw", "-5"},
                                                          {"vendor.qoz.maxw", "99999999999"},
                                                          {"debug.vpp.frc.game.ext.mbi", "banana"}};
    for (const auto& [name, value] : absurd) {
        rows.push_back({.name = std::string("property ") + name + " is " + value,
                        .properties = {{name, value}, {"vendor.qoz.maxh", "1"}}});
    }
}

template <int64_t... kTimes>
void atTimes(FaultScenario& play) {
    for (const int64_t time : {kTimes...})
        play.frameAt(time);
    play.playOn();
}

template <int32_t kSlot>
void queueTwice(FaultScenario& play) {
    play.frames(1, 64, 48);
    play.queueOnceMore(kSlot);
    play.playOn();
}

template <uint32_t kWidth, uint32_t kHeight>
void ofSize(FaultScenario& play) {
    play.frames(2, 64, 48);
    play.frames(2, kWidth, kHeight);
    play.playOn();
}

// Blocks the worker in the client's callback until the session has been released, so that
// disable() waits only for the callback.
void withBlockedCallback(FaultScenario& play) {
    std::latch release(1);
    std::atomic<bool> released{false};
    play.client.onReturn = [&, driver = std::this_thread::get_id()] {
        if (std::this_thread::get_id() != driver) release.wait();
    };
    play.frames(6, 64, 48);
    play.flush(false);
    std::thread releaser([&] {
        EXPECT_TRUE(eventually([] { return host::counters().sessionsLive == 0; }));
        released = true;
        release.count_down();
    });
    play.disable();
    EXPECT_TRUE(released) << "disabled while the client was in a callback";
    releaser.join();
    play.client.onReturn = {};
    EXPECT_EQ(play.client.ledger().outstanding(), 0U);
    play.saw("process goes on, disable waits for the callback");
}

void addClient(std::vector<Row>& rows) {
    constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
    constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
    const std::pair<const char*, Script> scripts[] = {
        {"timestamps equal", atTimes<16000, 16000, 16000, 16000>},
        {"timestamps backwards", atTimes<48000000, 32000000, 16000000>},
        {"timestamps 0", atTimes<0, 0>},
        {"timestamps negative", atTimes<-1, -16000000, -5>},
        {"timestamps at the limits of their type", atTimes<kMin, kMax, kMin, 0, kMax>},
        {"frames of 0x0", ofSize<0, 0>},
        {"frames of 1x1", ofSize<1, 1>},
        {"frames of 33x17", ofSize<33, 17>},
        {"frames of 16384x8", ofSize<16384, 8>},
        {"frames of 2147483647x2147483647", ofSize<0x7FFFFFFF, 0x7FFFFFFF>},
        {"callback blocks", withBlockedCallback},
        {"callback takes 10 ms",
         [](FaultScenario& play) {
             play.client.onReturn = [] { std::this_thread::sleep_for(10ms); };
             play.playOn();
         }},
        {"callback asks the getters",
         [](FaultScenario& play) {
             play.client.onReturn = [vpp = play.client.vpp.get()] {
                 int format = 0;
                 vpp->GetFormat(1, format);
                 EXPECT_LT(vpp->outBufReqsPerFrame(), 6);
                 EXPECT_LE(vpp->expectedOutputWidth() + vpp->expectedOutputHeight(), 400);
                 EXPECT_LE(vpp->state(), VppComponent::ERROR);
             };
             play.playOn();
             play.disable();
             play.client.onReturn = {};
         }},
        {"disable with buffers in flight", [](FaultScenario& play) { play.frames(5, 64, 48); }},
    };
    for (const auto& [name, script] : scripts)
        rows.push_back({.name = name, .script = script});
    // Slot 8 is the last output buffer that waits for a frame; the source is the reference frame.
    const std::pair<const char*, Script> twice[] = {
        {"a slot queued twice", queueTwice<8>},
        {"a source queued twice", queueTwice<client::LiveClient::kFirstSource>}};
    for (const auto& [name, script] : twice)
        rows.push_back({.name = name, .script = script, .doubles = 1});
}

std::vector<Row> allRows() {
    std::vector<Row> rows{{.name = "nothing"}};
    addService(rows);
    addPlatform(rows);
    addClient(rows);
    return rows;
}

class Faults : public ResourceTest, public testing::WithParamInterface<Row> {
  protected:
    static void TearDownTestSuite() {
        const char* folder = getenv("QOZ_WRITE_DOCS");
        if (folder == nullptr || sLines.size() != allRows().size()) return;
        const std::string name = std::string(folder) + "/faults.md";
        std::ostringstream before;
        before << std::ifstream(name).rdbuf();
        const std::string old = before.str();
        const auto others = std::min(old.find("\n## "), old.size());  // sections of other tests
        std::ofstream page(name);
        page << kPageHead;
        for (const auto& line : sLines)
            page << line;
        page << old.substr(others);
    }

    // Plays the row, then checks the times and the ledger and adds a line to the documentation.
    void run(FaultScenario& play);
    void expectOutputsBack(const client::LiveClient& client);
    void checkTimes(const FaultScenario& play);
    void checkLedger(const FaultScenario& play, const client::Ledger& atDisable);
    void note(const FaultScenario& play, const client::Ledger& ledger);
    std::string newErrors();

    static const char* const kPageHead;
    static inline std::vector<std::string> sLines;
    static inline std::set<std::string> sUsualErrors;

    LogCapture log;
    std::optional<host::VppService> service{std::in_place};
};

const char* const Faults::kPageHead =
    R"(# What goes wrong, and what a client sees of it

Written by `tests/faults_test.cpp` (`QOZ_WRITE_DOCS=docs build/release/tests/faults_test`), one line
for each row of its table. Every row plays frames, a new size, a new upscale ratio, a drain, a flush
and more frames against the simulated service, then disables; after every row the component starts
again with a healthy service, plays frames, and returns every buffer. No descriptor, thread, buffer,
handle, session or binder reference is left.

*Blocked* is the longest single operation, with a wait limit of 0.2 s in place of 3 s except where
the row says "full wait"; "is late" means by 0.3 s. Each return of the service is passed on, so a buffer
that the service returns twice is returned to the client twice. "Dropped with the session" are the buffers
that the service had, and the source held as motion reference, at a disable without a flush before it. The
buffers of a service that died are returned when it dies.

| fault | what the client sees | blocked | buffers |
|---|---|---|---|
)";

TEST_P(Faults, LoseNothingElseAndStopNobody) {
    for (const auto& [name, value] : GetParam().properties)
        host::setProperty(name, value);
    if (GetParam().throws) {
        EXPECT_THROW(FaultScenario(kShortWait, 0), std::logic_error);
        sLines.push_back("| " + GetParam().name +
                         " | the constructor throws | 0.0 s | none queued |\n");
        return;
    }
    FaultScenario play(GetParam().realWait ? kRealWait : kShortWait, GetParam().lossy());
    run(play);
    if (HasFailure()) return;
    host::clearFaults();
    host::clearProperties();
    if (GetParam().has(FaultKind::Die)) {
        service.reset();
        service.emplace();
    }
    if (GetParam().properties.empty()) return play.expectHealth();
    // The first component has read the properties already, so this needs a new one.
    FaultScenario(kShortWait, 0).expectHealth();
}

void Faults::run(FaultScenario& play) {
    for (const Fault& fault : GetParam().faults)
        host::armFault(fault);
    play.start(GetParam().params);
    GetParam().script(play);
    if (!client::LiveClient::serviceLives()) expectOutputsBack(play.client);
    play.disable();
    const auto ledger = play.client.ledger();
    EXPECT_GE(host::faultsFired(), GetParam().faults.size()) << "the row tests nothing";
    checkTimes(play);
    checkLedger(play, ledger);
    note(play, ledger);
}

// Expects that all output buffers are returned after the death of the service.
void Faults::expectOutputsBack(const client::LiveClient& client) {
    EXPECT_TRUE(eventually([&] { return client.ledger().outstanding(client::kOutputPort) == 0; }))
        << client.account();
}

void Faults::checkTimes(const FaultScenario& play) {
    const bool real = GetParam().realWait;
    EXPECT_LE(play.longest, (real ? kRealWait : kLate) + kSlack);
    EXPECT_GE(play.longest, real ? kRealWait : 0ms);
    EXPECT_LE(play.disabling, 5s);
}

// After a successful flush, all buffers have been returned except those that the fault itself lost.
// Otherwise the session may drop outstanding output buffers when it closes, and one source: the
// reference frame.
void Faults::checkLedger(const FaultScenario& play, const client::Ledger& atDisable) {
    EXPECT_LE(play.client.doubled(), GetParam().mayDouble());
    EXPECT_EQ(atDisable.totals().wrongPort, 0);
    EXPECT_LE(atDisable.outstanding(client::kSourcePort), 1);
    if (!play.flushed) return;
    EXPECT_EQ(play.flushed->outstanding(client::kSourcePort), 0);
    EXPECT_LE(play.flushed->outstanding(client::kOutputPort), GetParam().lossy());
}

// Returns the first error message that the run without a fault does not log.
std::string Faults::newErrors() {
    for (const auto& text : log.texts(ANDROID_LOG_ERROR)) {
        if (GetParam().name == "nothing") {
            sUsualErrors.insert(text);
        } else if (!sUsualErrors.contains(text)) {
            return text;
        }
    }
    return {};
}

void Faults::note(const FaultScenario& play, const client::Ledger& ledger) {
    std::ostringstream line;
    line << "| " << GetParam().name << " | ";
    const std::string message = newErrors();
    const char* between = "";
    for (const auto& text : play.seen)
        line << std::exchange(between, "; ") << text;
    if (!message.empty()) line << between << "\"" << message << "\"";
    if (message.empty() && play.seen.empty()) line << "nothing";
    line << " | " << std::fixed << std::setprecision(1)
         << std::chrono::duration<double>(play.longest).count() << " s | ";
    if (play.client.doubled() > 0) line << "one returned twice; ";
    if (play.flushed) {
        const bool lost = play.flushed->outstanding() > 0;
        line << (lost ? "one lost with the fault, the others returned" : "all returned")
             << " after the flush";
    } else {
        line << (ledger.outstanding() > 0 ? "dropped with the session" : "all returned");
    }
    line << " |\n";
    sLines.push_back(line.str());
}

std::string testName(const testing::TestParamInfo<Row>& info) {
    std::string name = info.param.name;
    std::ranges::replace_if(
        name, [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Table, Faults, testing::ValuesIn(allRows()), testName);

}  // namespace
}  // namespace qoz::test
