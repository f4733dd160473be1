#include "Screen.h"

#include <clocale>
#include <cstdlib>
#include <string_view>

#include <curses.h>
#include <langinfo.h>

namespace qozplay {
namespace {

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

}  // namespace

struct Screen::Terminal {
    File file{fopen("/dev/tty", "r+e"), fclose};
    SCREEN* screen = nullptr;
    bool blocks = false;
};

Screen::Screen(Console& console) : mConsole(console), mTerminal(std::make_unique<Terminal>()) {
    FILE* file = mTerminal->file.get();
    if (file == nullptr) throw BadInput("--watch: there is no terminal to show it on");
    std::setlocale(LC_CTYPE, "");
    mTerminal->blocks = std::string_view(nl_langinfo(CODESET)) == "UTF-8";
    mTerminal->screen = newterm(nullptr, file, file);
    if (mTerminal->screen == nullptr) {
        const char* name = std::getenv("TERM");
        throw BadInput(std::string("--watch: nothing is known of this terminal, TERM is ") +
                       (name == nullptr ? "not set" : name));
    }
    mConsole.hold();
    set_term(mTerminal->screen);
    cbreak();
    noecho();
    curs_set(0);
    keypad(stdscr, TRUE);
}

Screen::~Screen() {
    leave();
    delscreen(mTerminal->screen);
}

void Screen::leave() {
    if (isendwin() != FALSE) return;
    endwin();
    mConsole.release();
}

Page Screen::page() const {
    return {static_cast<size_t>(getmaxx(stdscr)), static_cast<size_t>(getmaxy(stdscr)),
            mTerminal->blocks};
}

void Screen::show(const std::vector<std::string>& lines) {
    erase();
    int row = 0;
    for (const std::string& line : lines)
        mvaddstr(row++, 0, line.c_str());
    refresh();
}

int Screen::key(std::chrono::milliseconds limit) {
    timeout(static_cast<int>(limit.count()));
    const int key = getch();
    return key == ERR ? 0 : key;
}

}  // namespace qozplay
