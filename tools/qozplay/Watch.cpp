#include "Watch.h"

#include "ComponentDump.h"

namespace qozplay {
namespace {

constexpr std::chrono::milliseconds kInterval{100};
constexpr std::chrono::seconds kLately{1};
constexpr size_t kLogLines = 50;

}  // namespace

Watch::Watch(Screen& screen, const std::vector<std::unique_ptr<Client>>& clients, Console& console)
    : mScreen(screen), mConsole(console), mShowComponents(clients.size() == 1) {
    for (const std::unique_ptr<Client>& client : clients)
        mSessions.push_back({client.get(), client->component()});
    mThread = std::thread([this] { run(); });
}

Watch::~Watch() {
    mOver.store(true, std::memory_order_relaxed);
    mThread.join();
    mScreen.leave();
}

void Watch::run() {
    while (!mOver.load(std::memory_order_relaxed)) {
        mScreen.show(drawDashboard(look(), mScreen.page()));
        obey(mScreen.key(kInterval));
    }
}

void Watch::obey(int key) {
    if (key == 'd') mShowComponents = !mShowComponents;
    if (key != 'q') return;
    mEnding = true;
    for (const Watched& watched : mSessions)
        watched.client->gauges().requestStop();
}

RunView Watch::look() {
    RunView view;
    view.seconds = milliseconds(Clock::now() - mStart) / 1000;
    view.ending = mEnding;
    view.host = qoz::host::counters();
    view.faultsFired = qoz::host::faultsFired();
    for (const Watched& watched : mSessions)
        view.sessions.push_back(lookAt(watched));
    addRates(&view);
    view.log = mConsole.lastHeld(kLogLines);
    return view;
}

SessionView Watch::lookAt(const Watched& watched) const {
    SessionView view;
    view.name = watched.client->name();
    view.state = nameOf(watched.component->state());
    view.gauges = watched.client->gauges().read();
    view.sourcesLent = watched.client->mailbox().outstanding(kSourcePort);
    view.outputsLent = watched.client->mailbox().outstanding(kOutputPort);
    if (mShowComponents) view.component = dumpLines(*watched.component);
    return view;
}

// Against the oldest look of the last second.
void Watch::addRates(RunView* view) {
    Past now{Clock::now(), {}};
    for (const SessionView& session : view->sessions)
        now.inOut.emplace_back(session.gauges.in, session.gauges.own + session.gauges.made);
    mPast.push_back(now);
    while (now.at - mPast.front().at > kLately)
        mPast.pop_front();
    const Past& past = mPast.front();
    const double seconds = milliseconds(now.at - past.at) / 1000;
    if (seconds <= 0) return;
    for (size_t i = 0; i < view->sessions.size(); ++i) {
        view->sessions[i].inRate =
            static_cast<double>(now.inOut[i].first - past.inOut[i].first) / seconds;
        view->sessions[i].outRate =
            static_cast<double>(now.inOut[i].second - past.inOut[i].second) / seconds;
    }
}

}  // namespace qozplay
