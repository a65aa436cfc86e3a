#include "sim/launcher/Panel.h"

#include <curses.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>

namespace launcher {
namespace {

constexpr int Columns = 2;
constexpr int NameWidth = 10;
constexpr int BarWidth = 12;
constexpr char Prompt[] = "> ";

enum Colour : short { Frame = 1, Lit, Low, Dark };

void colour(Colour colour, bool isBright = false) {
    attrset(COLOR_PAIR(colour) | (isBright ? A_BOLD : A_NORMAL));
}

void plain() { attrset(A_NORMAL); }

/// Whether a byte goes on with a character in UTF-8, which takes a column as a whole.
bool isContinued(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

/// As much of a text as the row has place for, without what would move the cursor.
void put(int row, int column, const std::string& text, int width) {
    int left = std::min(width, COLS - column);
    std::string shown;
    for (const char byte : text) {
        if (!isContinued(byte) && left-- <= 0)
            break;
        const auto code = static_cast<unsigned char>(byte);
        shown += code < ' ' || code == 0x7F ? '.' : byte;
    }
    mvaddstr(row, column, shown.c_str());
}

/// As much of a text's end as a width has place for.
std::string endOf(const std::string& text, int width) {
    size_t begin = text.size();
    for (int left = width; begin > 0 && left > 0;)
        left -= isContinued(text[--begin]) ? 0 : 1;
    return text.substr(begin);
}

void drawRule(int row, const std::string& text) {
    colour(Frame);
    mvhline(row, 0, ACS_HLINE, COLS);
    colour(Frame, true);
    put(row, 2, " " + text + " ", COLS);
    plain();
}

void drawBar(int row, int column, int level) {
    const int filled = (level * BarWidth + 50) / 100;
    colour(level <= 20 ? Low : Lit);
    mvhline(row, column, ACS_CKBOARD, filled);
    colour(Dark);
    mvhline(row, column + filled, ACS_BULLET, BarWidth - filled);
    plain();
}

int drawLamp(int row, int column, const PanelItem& lamp) {
    colour(lamp.level ? Lit : Dark, lamp.level != 0);
    mvaddch(row, column, lamp.level ? ACS_DIAMOND : ACS_BULLET);
    plain();
    put(row, column + 2, lamp.name, COLS);
    return column + 2 + static_cast<int>(lamp.name.size()) + 3;
}

void drawCell(int row, int column, int width, const PanelItem& item) {
    colour(Frame);
    put(row, column, item.name, NameWidth);
    plain();
    int at = column + NameWidth + 1;
    if (item.kind == PanelItem::Bar) {
        drawBar(row, at, item.level);
        at += BarWidth + 1;
    }
    put(row, at, item.text, width - (at - column) - 1);
}

/// Takes a character's last byte off, and the bytes of it before that.
void dropLast(std::string& text) {
    while (!text.empty()) {
        const char byte = text.back();
        text.pop_back();
        if (!isContinued(byte))
            return;
    }
}

}  // namespace

Panel::Panel(int programEnd, int itemsEnd) : program(programEnd), items(itemsEnd) {
    setlocale(LC_ALL, "");
    initscr();
    cbreak();
    noecho();
    nodelay(stdscr, true);
    keypad(stdscr, true);
    if (has_colors()) {
        start_color();
        use_default_colors();
        init_pair(Frame, COLOR_CYAN, -1);
        init_pair(Lit, COLOR_GREEN, -1);
        init_pair(Low, COLOR_RED, -1);
        init_pair(Dark, COLOR_BLUE, -1);
    }
}

Panel::~Panel() {
    endwin();
    for (const std::string& line : log.lines())
        puts(line.c_str());
    if (!log.beginning().empty())
        puts(log.beginning().c_str());
    fflush(stdout);
}

void Panel::run() {
    int output = program;
    int keyboard = STDIN_FILENO;
    for (bool isRunning = true; isRunning;) {
        draw();
        pollfd waiting[] = {{items, POLLIN, 0}, {output, POLLIN, 0}, {keyboard, POLLIN, 0}};
        // A signal ends the wait when the screen has changed its size: curses tells that as a key.
        if (poll(waiting, std::size(waiting), -1) > 0) {
            if (waiting[0].revents)
                isRunning = takeItems();
            if (waiting[1].revents && !takeOutput())
                output = -1;
            if (waiting[2].revents & ~POLLIN)
                keyboard = -1;
        }
        takeKeys();
    }
    takeOutput();
}

/// False when the program has ended.
bool Panel::takeItems() {
    char message[LongestPanelMessage];
    const ssize_t size = recv(items, message, sizeof message, 0);
    if (size > 0)
        shown = fromMessage({message, static_cast<size_t>(size)});
    return size > 0 || (size < 0 && errno == EINTR);
}

/// False when nobody holds the other end any more.
bool Panel::takeOutput() {
    char bytes[4096];
    ssize_t size = 0;
    while ((size = read(program, bytes, sizeof bytes)) > 0)
        log.add({bytes, static_cast<size_t>(size)});
    return size < 0 && (errno == EAGAIN || errno == EINTR);
}

void Panel::takeKeys() {
    for (int key = 0; (key = getch()) != ERR;) {
        const auto page = static_cast<size_t>(std::max(LINES / 2, 1));
        switch (key) {
        case KEY_PPAGE: scrolledBack = std::min(scrolledBack + page, log.lines().size()); break;
        case KEY_NPAGE: scrolledBack -= std::min(scrolledBack, page); break;
        case KEY_BACKSPACE:
        case 0x7F:
        case '\b': dropLast(typed); break;
        case '\n':
        case KEY_ENTER: submit(); break;
        default:
            if (key >= ' ' && key <= 0xFF)
                typed += static_cast<char>(key);
        }
    }
}

/// What has been typed is the program's, or the console's, whichever reads the input.
void Panel::submit() {
    log.add(Prompt + typed + "\n");
    typed += "\n";
    for (size_t sent = 0; sent < typed.size();) {
        const ssize_t size = write(program, typed.data() + sent, typed.size() - sent);
        if (size <= 0)
            break;
        sent += static_cast<size_t>(size);
    }
    typed.clear();
    scrolledBack = 0;
}

void Panel::draw() const {
    erase();
    const int top = drawItems();
    drawRule(top, "log  (PgUp, PgDn; Ctrl-C ends)");
    drawLog(top + 1, LINES - top - 2);
    drawInput(LINES - 1);
    refresh();
}

/// The row below.
int Panel::drawItems() const {
    constexpr int LampRow = 1, FirstCellRow = 2;
    const int width = COLS / Columns;
    int lampColumn = 2;
    int cell = 0;
    drawRule(0, "terminal");
    for (const PanelItem& item : shown) {
        switch (item.kind) {
        case PanelItem::Title: drawRule(0, "terminal  " + item.text + "  " + item.name); break;
        case PanelItem::Lamp: lampColumn = drawLamp(LampRow, lampColumn, item); break;
        case PanelItem::Bar:
        case PanelItem::Text:
            drawCell(FirstCellRow + cell / Columns, 2 + cell % Columns * width, width, item);
            ++cell;
        }
    }
    return FirstCellRow + (cell + Columns - 1) / Columns;
}

void Panel::drawLog(int top, int height) const {
    const auto& lines = log.lines();
    const size_t end = lines.size() - std::min(scrolledBack, lines.size());
    const size_t begin = end - std::min(end, static_cast<size_t>(std::max(height, 0)));
    for (size_t i = begin; i < end; ++i)
        put(top + static_cast<int>(i - begin), 0, lines[i], COLS);
}

void Panel::drawInput(int row) const {
    colour(Frame, true);
    put(row, 0, log.beginning().empty() ? Prompt : log.beginning(), COLS / 2);
    plain();
    const int column = getcurx(stdscr);
    put(row, column, endOf(typed, COLS - column - 1), COLS);
}

}  // namespace launcher
