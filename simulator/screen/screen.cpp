#include "screen/screen.h"

// ncurses defines macros with plain names: it comes last.
#include <ncurses.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>

#include "protocol/names.h"
#include "screen/narrator.h"
#include "screen/screen_colors.h"

namespace desk {
namespace {

constexpr size_t kLinesKept = 200;
constexpr Loop::Milliseconds kFrame(50);

// Plates and box lines need a terminal text in UTF-8, whatever the environment forgot to say.
void UseUtf8() {
  setlocale(LC_ALL, "");
  if (MB_CUR_MAX == 1) setlocale(LC_CTYPE, "C.UTF-8");
}

void MakeColors() {
  if (!has_colors()) return;
  start_color();
  use_default_colors();
  for (short color = 1; color <= 7; ++color) {
    init_pair(static_cast<short>(kTextPair + color), color, -1);
    init_pair(static_cast<short>(kLampPair + color), color == 3 || color == 7 ? COLOR_BLACK : COLOR_WHITE, color);
  }
}

}  // namespace

Screen::Screen(Desk& desk, const std::string& parkctl) : desk_(desk), change_(desk, parkctl) {
  desk_.journal().Listen([this](const Event& event) { Note(event); });
}

void Screen::Note(const Event& event) {
  const std::string time = ClockText(event.time).substr(0, 8) + "  ";
  const auto keep = [&](std::deque<Line>& lines, int pair) {
    lines.push_back({time + SourceName(event.source) + ": " + event.text, pair});
    if (lines.size() > kLinesKept) lines.pop_front();
  };
  switch (event.source) {
    case Source::kSerialOut:
      if (FindFact(event.facts, kRepeated) == nullptr) keep(serial_, kTextPair + COLOR_MAGENTA);
      break;
    case Source::kSerialIn:
      keep(serial_, kTextPair + COLOR_CYAN);
      break;
    case Source::kDisplay:
    case Source::kLed:
    case Source::kLog:
      break;  // seen in their own places
    case Source::kBeacon:
      keep(bus_, kTextPair + COLOR_CYAN);
      break;
    case Source::kDesk:
      keep(bus_, kTextPair + COLOR_YELLOW);
      break;
    case Source::kBroadcast:
    case Source::kRepublished:
    case Source::kReply:
      keep(bus_, kTextPair + COLOR_GREEN);
      break;
    default:
      keep(bus_, 0);
      break;
  }
  const std::string* type = FindFact(event.facts, businessserver::kType);
  if (event.source != Source::kBroadcast || type == nullptr || *type != businessserver::kFrameChanged) return;
  if (const auto* total = FindFact(event.facts, businessserver::kTotle)) total_ = *total;
  if (const auto* free = FindFact(event.facts, businessserver::kFree)) free_ = *free;
}

bool Screen::Run(const Loop::Condition& interrupted, End& end, std::string& problem) {
  UseUtf8();
  SCREEN* terminal = isatty(STDIN_FILENO) && isatty(STDOUT_FILENO) ? newterm(nullptr, stdout, stdin) : nullptr;
  if (terminal == nullptr) {
    const char* name = getenv("TERM");
    problem = std::string("the live screen needs a terminal that curses knows; TERM is ") +
              (name == nullptr ? "not set" : name);
    return false;
  }
  MakeColors();
  cbreak();
  noecho();
  curs_set(0);
  keypad(stdscr, TRUE);
  nodelay(stdscr, TRUE);
  set_escdelay(50);

  ended_ = false;
  desk_.loop().Watch(STDIN_FILENO, [this] {
    for (int key; (key = getch()) != ERR;) HandleKey(key);
  });
  while (!ended_ && !interrupted()) {
    for (int key; (key = getch()) != ERR;) HandleKey(key);  // a changed size arrives as a key, but not as input
    change_.Look();
    Draw();
    desk_.loop().RunUntil([&] { return ended_ || interrupted(); }, kFrame);
  }
  desk_.loop().Unwatch(STDIN_FILENO);
  endwin();
  delscreen(terminal);
  end = end_;
  return true;
}

}  // namespace desk
