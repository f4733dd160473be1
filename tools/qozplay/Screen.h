// The controlling terminal as a page of text and a keyboard.
#pragma once

#include "Console.h"
#include "Dashboard.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace qozplay {

// One at a time, and one thread at a time.
class Screen {
  public:
    // Throws BadInput when there is no terminal or nothing is known of it. The console keeps what
    // it is told until the terminal is given back.
    explicit Screen(Console& console);
    ~Screen();

    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    Page page() const;
    void show(const std::vector<std::string>& lines);

    // A key, or 0 when none comes in time.
    int key(std::chrono::milliseconds limit);

    // Gives the terminal back as it was, which the end of the object does, too. Nothing is shown
    // any more.
    void leave();

  private:
    struct Terminal;
    Console& mConsole;
    std::unique_ptr<Terminal> mTerminal;
};

}  // namespace qozplay
