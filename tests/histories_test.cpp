// SPDX-License-Identifier: Apache-2.0
// Random sequences of operations of one to three components on one service, with and without
// faults. Each component has a thread of its own. RapidCheck generates the sequences and shrinks
// one that fails.
//
// QOZ_HISTORIES sets the number of sequences (150 if unset). Every run plays the same sequences and
// prints their seed; RC_PARAMS="seed=..." selects others.
#include <client/LiveClient.h>
#include <rapidcheck.h>

#include <cstdlib>
#include <iostream>
#include <iterator>
#include <sstream>
#include <thread>

#include "support/Fixture.h"
#include "support/Sanitized.h"

namespace qoz::test {
namespace {

using namespace std::chrono_literals;
using host::Fault;
using host::FaultKind;

constexpr uint32_t kComponents = 3;
constexpr int64_t kFrameNs = 16000000;
constexpr auto kPatience = 10s;  // without faults, when every answer arrives
constexpr auto kShortWait = kSanitized ? 150ms : 50ms;

enum class Act { Enable, Config, Frame, CarryFrame, Queue, Flush, Disable, Restart, Arm, Kill };
constexpr const char* kActNames[] = {"Enable", "Config",  "Frame",   "CarryFrame", "Queue",
                                     "Flush",  "Disable", "Restart", "Arm",        "Kill"};

// One operation of the component `who`. `value` selects its arguments from the tables below.
struct Step {
    uint32_t who = 0;
    Act act = Act::Enable;
    uint32_t value = 0;
};
using History = std::vector<Step>;

std::ostream& operator<<(std::ostream& out, const Step& step) {
    return out << "Step{" << step.who << ", Act::" << kActNames[static_cast<int>(step.act)] << ", "
               << step.value << '}';
}

constexpr uint32_t kSizes[][2] = {{64, 48}, {96, 64}, {35, 18}};

// The faults that a history can arm, in the syntax of the player's --fault.
constexpr const char* kFaultTexts =
    "queueBuf=7@3 queueBuf=transport@2 queueBuf=twice@4 queueBuf=late:20 "
    "outputBufferDone=drop outputBufferDone=twice@2 outputBufferDone=unknown "
    "outputBufferDone=late:80 outputBufferDone=7 inputBufferDone=drop inputBufferDone=twice "
    "flush=7 flush=late:80@2 eventFlushDone=drop eventFlushDone=twice "
    "reconfigure=7 eventReconfigDone=7 eventReconfigDone=late:80 setCtrlFrc=7 setParameter=7@2 "
    "open=7 open=late:80 initSession=7 getNewVppSession=7 close=transport terminateSession=7 "
    "allocate=1@2 native_handle_create=1@3 RGBToNV12=1 queueBuf=keep:7@2 "
    "outputBufferDone=swap@2 inputBufferDone=swap queueBuf=die@3 eventFlushDone=die "
    "flush=within reconfigure=within eventReconfigDone=drop reconfigure=die";

Fault faultOf(const Step& step) {
    static const auto all = [] {
        std::istringstream words(kFaultTexts);
        return std::vector<std::string>(std::istream_iterator<std::string>(words), {});
    }();
    std::string error;
    return host::parseFault(all[step.value % all.size()], &error).value();
}

// Histories that once failed.
const std::vector<History> kKnown = {
    // The component is disabled in ERROR, and the session returns an output buffer after the worker
    // has ended.
    {Step{1, Act::Enable, 0}, Step{1, Act::CarryFrame, 0}, Step{1, Act::Arm, 18},
     Step{1, Act::Config, 259}, Step{1, Act::Frame, 350}},
    // The same happens to a component that is started again, beside one with other faults.
    {Step{1, Act::Enable, 322}, Step{0, Act::Enable, 288}, Step{0, Act::Arm, 27},
     Step{0, Act::CarryFrame, 348}, Step{0, Act::Config, 168}, Step{0, Act::Frame, 420},
     Step{1, Act::Disable, 0}, Step{1, Act::Frame, 553}},
    // The session can be neither closed nor terminated, and returns an output buffer to the client
    // of the next session.
    {Step{1, Act::Config, 77}, Step{0, Act::Arm, 25}, Step{1, Act::Enable, 0},
     Step{0, Act::Arm, 24}, Step{1, Act::CarryFrame, 0}, Step{1, Act::CarryFrame, 200},
     Step{1, Act::Disable, 0}}};

ConfigParams paramsOf(uint32_t value) {
    return {value % 7 == 6 ? 2U : 1U, 0, value % 4, value / 4 % 3};
}

// The service that all components of a history share. Steps kill it and start it again. Any thread
// may call it.
class SharedService {
  public:
    // Starts the service if it is dead. Returns its number, which is a new one after each death.
    int revive() {
        const std::lock_guard lock(mLock);
        if (client::LiveClient::serviceLives()) return mNumber;
        mService.reset();
        mService.emplace();
        return ++mNumber;
    }
    void kill() {
        const std::lock_guard lock(mLock);
        mService.reset();
    }
    // Returns true if the service with this number has died.
    bool hasDied(int number) {
        const std::lock_guard lock(mLock);
        return number != mNumber || !client::LiveClient::serviceLives();
    }

  private:
    std::mutex mLock;
    std::optional<host::VppService> mService;
    int mNumber = 0;
};

// The irregularities that the faults of a history may cause.
struct Allowance {
    bool faults = false;  // operations may fail
    size_t lost = 0;
    size_t doubled = 0;

    static Allowance of(const History& history) {
        Allowance allowed;
        for (const Step& step : history) {
            if (step.act == Act::Kill) allowed.faults = true;
            if (step.act != Act::Arm) continue;
            const FaultKind kind = faultOf(step).kind;
            allowed.faults = true;
            if (kind == FaultKind::Twice || kind == FaultKind::Keep) ++allowed.doubled;
            if (kind != FaultKind::Code && kind != FaultKind::Die) ++allowed.lost;
        }
        return allowed;
    }
};

// One component with its client, and a model of its state. It carries out the steps of a history
// and compares the component with the model.
class Player {
  public:
    Player(SharedService& service, const Allowance& allowed)
        : mService(service), mAllowed(allowed) {
        mClient.vpp = std::make_shared<VppComponent>();
        VppComponentPeer(*mClient.vpp).setWaitLimit(allowed.faults ? kShortWait : kPatience);
        mClient.onReturn = [vpp = mClient.vpp.get()] {
            int format = 0;
            vpp->GetFormat(1, format);
            (void)(vpp->outBufReqsPerFrame() + vpp->expectedOutputWidth());
        };
    }

    void play(const Step& step) {
        switch (step.act) {
            case Act::Enable:
                return enable();
            case Act::Config:
                return config(step.value);
            case Act::Frame:
                return frame(step.value, {});
            case Act::CarryFrame:
                return frame(step.value, paramsOf(step.value / 3));
            case Act::Queue:
                if (mState == VppComponent::IDLE) return;  // it would start the session
                return mClient.queueOutputs(step.value % 24);
            case Act::Flush:
                return flush();
            case Act::Disable:
                return disable();
            case Act::Restart:
                disable();
                enable();
                return config(step.value);
            case Act::Arm:
                return host::armFault(faultOf(step));
            case Act::Kill:
                return mService.kill();
        }
    }

    // Checks, at the end of every history, that without faults the component works and returns all
    // buffers.
    void finish() {
        disable();
        mAllowed = {};
        VppComponentPeer(*mClient.vpp).setWaitLimit(kPatience);
        enable();
        config(1);
        frame(0, {});
        frame(0, {});
        flush();
        disable();
    }

    std::string wrong;

  private:
    void enable() {
        const int number = mService.revive();
        const bool wasOff = mState == VppComponent::UNINIT;
        const bool on = wasOff ? mClient.enable() : mClient.vpp->enable("again", &mClient, false);
        check(wasOff || !on, "enabled twice");
        check(on || !wasOff || mAllowed.faults, "not enabled");
        // Another thread may have killed the service meanwhile. It is then unknown to which service
        // the session belongs.
        if (on && wasOff)
            mServiceNumber = mService.hasDied(number) ? std::nullopt : std::optional(number);
        if (on) expect({VppComponent::INIT});
        if (!on && wasOff) expect({VppComponent::UNINIT, VppComponent::ERROR});
    }

    void config(uint32_t value) {
        const auto& size = kSizes[value % std::size(kSizes)];
        mClient.vpp->config(size[0], size[1], kRgba, paramsOf(value), value % 2 == 0);
        (void)mClient.vpp->isInputPortEnabled(size[0], size[1], kRgba);  // waits for the start
        expectActive();
    }

    void frame(uint32_t value, std::optional<ConfigParams> carried) {
        const auto& size = kSizes[value % std::size(kSizes)];
        check(mClient.send(size[0], size[1], mNow += kFrameNs, {}, carried), "no source");
        expectActive();
    }

    void flush() {
        mClient.vpp->flushsync();
        if (mState != VppComponent::ACTIVE) return expectAny();
        expect(mAllowed.faults ? Set{VppComponent::IDLE, VppComponent::ERROR}
                               : Set{VppComponent::IDLE});
        if (mState != VppComponent::IDLE) return;
        check(eventually([this] { return mClient.ledger().outstanding() <= mAllowed.lost; }),
              "lost in a flush: " + mClient.account());
    }

    void disable() {
        // After the death of the service, the component returns the service's buffers by itself.
        if (mState != VppComponent::UNINIT && mServiceNumber && mService.hasDied(*mServiceNumber)) {
            check(eventually([this] {
                      return mClient.ledger().outstanding(client::kOutputPort) <= mAllowed.lost;
                  }),
                  "lost in a death: " + mClient.account());
        }
        const auto begin = std::chrono::steady_clock::now();
        mClient.vpp->disable();
        check(std::chrono::steady_clock::now() - begin < 5s, "disable takes long");
        mState = VppComponent::UNINIT;
        expect({VppComponent::UNINIT});
        check(mClient.doubled() <= mAllowed.doubled, "doubled: " + mClient.account());
        check(mClient.ledger().totals().wrongPort == 0, "wrong port: " + mClient.account());
    }

    using Set = std::set<VppComponent::status>;
    void expect(const Set& allowed) {
        const auto now = mClient.vpp->state();
        check(allowed.contains(now), "state " + std::to_string(now));
        mState = now;
    }
    void expectActive() {
        if (mState == VppComponent::UNINIT || mAllowed.faults) return expectAny();
        expect({VppComponent::ACTIVE});
    }
    // Expects any state that is possible after a failure. Only enable() and disable() change
    // whether the state is UNINIT.
    void expectAny() {
        const auto now = mClient.vpp->state();
        check((now == VppComponent::UNINIT) == (mState == VppComponent::UNINIT),
              "state " + std::to_string(now) + " after " + std::to_string(mState));
        check(now != VppComponent::PENDING, "still pending");
        mState = now;
    }
    void check(bool good, const std::string& text) {
        if (!good) wrong += text + "; ";
    }

    SharedService& mService;
    std::optional<int> mServiceNumber;  // the service of the session; nullopt if unknown
    Allowance mAllowed;
    client::LiveClient mClient;
    VppComponent::status mState = VppComponent::UNINIT;
    int64_t mNow = 0;
};

class Histories : public ResourceTest {
  protected:
    // Plays a history, with a thread for each component. Returns the failures; empty if there are
    // none.
    std::string play(const History& history) {
        Watchdog::feed();
        const Allowance allowed = Allowance::of(history);
        SharedService service;
        service.revive();
        std::array<std::unique_ptr<Player>, kComponents> players;
        for (auto& player : players)
            player = std::make_unique<Player>(service, allowed);
        onThreads([&](uint32_t who) {
            for (const Step& step : history) {
                if (step.who == who) players[who]->play(step);
            }
        });
        host::clearFaults();
        service.revive();
        onThreads([&](uint32_t who) { players[who]->finish(); });
        std::string wrong;
        for (const auto& player : players)
            wrong += player->wrong;
        log.clear();
        return wrong;
    }

    LogCapture log;

  private:
    static void onThreads(const std::function<void(uint32_t)>& work) {
        std::vector<std::thread> threads;
        for (uint32_t who = 0; who < kComponents; ++who)
            threads.emplace_back(work, who);
        for (auto& thread : threads)
            thread.join();
    }
};

rc::Gen<Step> anyStep(bool withFaults) {
    using Of = std::pair<size_t, Act>;
    return rc::gen::build<Step>(
        rc::gen::set(&Step::who, rc::gen::inRange(0U, kComponents)),
        rc::gen::set(
            &Step::act,
            rc::gen::weightedElement<Act>(
                {Of{4, Act::Enable}, Of{4, Act::Config}, Of{12, Act::Frame}, Of{4, Act::CarryFrame},
                 Of{3, Act::Queue}, Of{4, Act::Flush}, Of{2, Act::Disable}, Of{2, Act::Restart},
                 Of{withFaults ? 4U : 0U, Act::Arm}, Of{withFaults ? 1U : 0U, Act::Kill}})),
        rc::gen::set(&Step::value, rc::gen::inRange(0U, 1000U)));
}

// Passes the seed and the number of histories to RapidCheck in its environment variable. The user's
// own settings come last, so that they take precedence.
void setParameters() {
    const char* histories = getenv("QOZ_HISTORIES");
    const char* more = getenv("RC_PARAMS");
    const std::string params = std::string("seed=20 max_success=") +
                               (histories != nullptr ? histories : "150") + " " +
                               (more != nullptr ? more : "");
    std::cerr << "RC_PARAMS=\"" << params << "\"\n";
    setenv("RC_PARAMS", params.c_str(), 1);
}

TEST_F(Histories, ThoseOfBeforeKeepThemToo) {
    constexpr int kRounds = 20;  // the failures depend on timing
    for (const auto& history : kKnown) {
        for (int round = 0; round < kRounds; ++round)
            ASSERT_EQ(play(history), "") << rc::toString(history);
    }
}

TEST_F(Histories, EveryOneOfThemKeepsTheLedgersAndTheStates) {
    setParameters();
    EXPECT_TRUE(rc::check("histories", [this] {
        const bool withFaults = *rc::gen::arbitrary<bool>();
        const auto history = *rc::gen::container<History>(anyStep(withFaults));
        const std::string wrong = play(history);
        if (wrong.empty()) return;
        // RapidCheck plays the history again to shrink it. A failure that depends on timing may
        // then not occur, so the history is printed now.
        std::cerr << wrong << rc::toString(history) << '\n';
        RC_FAIL(wrong);
    }));
}

}  // namespace
}  // namespace qoz::test
