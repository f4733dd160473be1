// Shows the sessions while they run, from a thread of its own that only reads.
#pragma once

#include "Client.h"
#include "Console.h"
#include "Dashboard.h"
#include "Screen.h"

#include <atomic>
#include <deque>
#include <memory>
#include <thread>
#include <vector>

namespace qozplay {

class Watch {
  public:
    // The clients outlive it, and none has begun to run. At its end the screen is left, and what
    // was reported to the console meanwhile is printed.
    Watch(Screen& screen, const std::vector<std::unique_ptr<Client>>& clients, Console& console);
    ~Watch();

    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

  private:
    struct Watched {
        Client* client;
        std::shared_ptr<const android::VppComponent> component;
    };
    // Frames of each session at one time.
    struct Past {
        Clock::time_point at;
        std::vector<std::pair<uint64_t, uint64_t>> inOut;
    };

    void run();
    void obey(int key);
    RunView look();
    SessionView lookAt(const Watched& watched) const;
    void addRates(RunView* view);

    Screen& mScreen;
    Console& mConsole;
    const Clock::time_point mStart = Clock::now();
    std::vector<Watched> mSessions;
    std::deque<Past> mPast;  // of the last second
    bool mShowComponents;
    bool mEnding = false;
    std::atomic<bool> mOver{false};
    std::thread mThread;
};

}  // namespace qozplay
