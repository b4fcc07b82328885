#include <ncurses.h>
#include <wchar.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "plain_words.h"
#include "protocol/parking_result.h"
#include "screen/narrator.h"
#include "screen/screen.h"
#include "screen/screen_colors.h"

namespace desk {
namespace {

// Writes at most width columns; a character that would stand across the edge is left out.
void Put(int row, int column, int width, const std::string& text, attr_t attributes = 0) {
  if (row < 0 || row >= LINES || column >= COLS) return;
  width = std::min(width, COLS - column);
  std::vector<wchar_t> wide(text.size() + 1);
  const size_t length = mbstowcs(wide.data(), text.c_str(), wide.size());
  if (length == static_cast<size_t>(-1)) return;
  int used = 0;
  size_t fits = 0;
  for (; fits < length; ++fits) {
    const int columns = std::max(wcwidth(wide[fits]), 0);
    if (used + columns > width) break;
    used += columns;
  }
  attron(attributes);
  mvaddnwstr(row, column, wide.data(), static_cast<int>(fits));
  attroff(attributes);
}

void Title(int row, int column, int width, const std::string& title) {
  if (width < 4 || row >= LINES) return;
  attron(A_DIM);
  mvhline(row, column, ACS_HLINE, width - 1);
  attroff(A_DIM);
  Put(row, column + 1, width - 3, " " + title + " ", A_BOLD);
}

attr_t Pair(int pair) { return static_cast<attr_t>(COLOR_PAIR(pair)); }

// The lamp's three lines as a number, which is also the terminal's number of the colour that they mix to.
int LampNumber(uint32_t data) { return static_cast<int>(data >> 2 & 7); }

const char* MannerName(BeaconManner manner) { return kBeaconManners[static_cast<size_t>(manner)].shown; }

constexpr const char* kHelp[] = {
    "1-3 car comes/goes", "4-6 line on/off", "n neighbour",  "s it falls silent", "d displays",
    "b beacon plug",      "m beacon manner", "c bad change", "7 broker",          "8 store",
    "9 daemon",           "l lines",         "q quit",
};

constexpr int kTopRows = 4;  // a title and three lines
constexpr int kMiddleRows = 4;

}  // namespace

void Screen::Draw() {
  erase();
  const int width = COLS;
  const int help_rows = DrawHelp(LINES, width);
  DrawHeader(width);
  int row = DrawTop(DrawChange(1, width), width);
  const int rows_left = LINES - help_rows - row;
  if (rows_left >= kMiddleRows) row = DrawMiddle(row, width);
  DrawLists(row, LINES - help_rows - row, width);
  refresh();
}

void Screen::DrawHeader(int width) {
  Put(0, 0, width, std::string(static_cast<size_t>(width), ' '), A_REVERSE);
  Put(0, 1, width - 1, width >= 70 ? "Parking camera" : "", A_REVERSE | A_BOLD);
  int column = width >= 70 ? 18 : 1;
  for (Process* process : {&desk_.broker(), &desk_.store(), &desk_.daemon()}) {
    const bool silent = process == &desk_.daemon() && process->running() && !desk_.ready();
    const std::string state = !process->running() ? "DOWN" : silent ? "up, silent" : "up";
    const attr_t bad = process->running() && !silent ? 0 : A_BLINK | A_BOLD;
    const std::string text = process->name() + " " + state;
    Put(0, column, width - column, text, A_REVERSE | bad);
    column += static_cast<int>(text.size()) + 2;
  }
  const std::string clock = ClockText(std::chrono::system_clock::now()).substr(0, 8);
  if (width - 9 > column) Put(0, width - 9, 8, clock, A_REVERSE);
}

// A change that goes back by itself, while there is one; returns the row below.
int Screen::DrawChange(int row, int width) {
  if (change_.words().empty()) return row;
  const attr_t color = Pair(kTextPair + (change_.is_waiting() ? COLOR_YELLOW : COLOR_GREEN)) | A_BOLD | A_REVERSE;
  Put(row, 0, width, " " + change_.words() + std::string(static_cast<size_t>(width), ' '), color);
  return row + 1;
}

int Screen::DrawTop(int row, int width) {
  constexpr int kLampWidth = 22;
  constexpr int kDisplaysWidth = 18;
  const bool lamp = width >= 45;
  const bool displays = width >= 62;
  const int spaces_width = width - (lamp ? kLampWidth : 0) - (displays ? kDisplaysWidth : 0);
  DrawSpaces(row, 0, spaces_width);
  if (lamp) DrawLamp(row, spaces_width, kLampWidth);
  if (displays) DrawDisplays(row, spaces_width + kLampWidth, kDisplaysWidth);
  return row + kTopRows;
}

int Screen::DrawMiddle(int row, int width) {
  const int counts_width = width >= 76 ? 38 : width / 2;
  DrawCounts(row, 0, counts_width);
  DrawBeacon(row, counts_width, width - counts_width);
  return row + kMiddleRows;
}

void Screen::DrawSpaces(int row, int column, int width) {
  Title(row, column, width, "Spaces");
  for (size_t i = 1; i <= businessserver::kSpaces; ++i) {
    const auto& space = desk_.recogniser().space(i);
    const attr_t color = Pair(kTextPair + (space.occupy_line == 1    ? COLOR_YELLOW
                                           : space.space_status == 0 ? COLOR_GREEN
                                                                     : COLOR_RED));
    const int line = row + static_cast<int>(i);
    const std::string name = words::GbkToUtf8(businessserver::FieldText(space.space_name));
    Put(line, column + 1, 8, std::to_string(i) + " " + words::Printable(name));
    Put(line, column + 10, width - 11, SpaceText(space), color | A_BOLD);
  }
}

void Screen::DrawLamp(int row, int column, int width) {
  const uint32_t data = desk_.board().LedData();
  const int number = LampNumber(data);
  const attr_t lit = number == 0 ? static_cast<attr_t>(A_DIM) : Pair(kLampPair + number);
  Title(row, column, width, "Lamp");
  for (int line = 1; line <= 3; ++line) {
    const bool on = (number >> (line - 1) & 1) != 0;
    Put(row + line, column + 1, 6, on ? "  " + std::to_string(line) + "   " : "      ",
        number == 0 ? static_cast<attr_t>(A_REVERSE | A_DIM) : lit);
  }
  const int color = LedColor(data);
  Put(row + 1, column + 9, width - 10, words::LedRegisterText(data));
  Put(row + 2, column + 9, width - 10, color < 0 ? "no colour" : "colour " + std::to_string(color));
}

void Screen::DrawDisplays(int row, int column, int width) {
  Title(row, column, width, "Displays");
  int line = row + 1;
  for (const auto& display : desk_.serial().displays()) {
    Put(line, column + 1, 6, display.name);
    const std::string digits = display.digits.empty()
                                   ? "----"
                                   : std::string(4 - std::min<size_t>(display.digits.size(), 4), ' ') + display.digits;
    Put(line++, column + 8, width - 9, " " + digits + " ",
        display.digits.empty() ? static_cast<attr_t>(A_DIM) : Pair(kTextPair + COLOR_RED) | A_REVERSE | A_BOLD);
  }
}

void Screen::DrawCounts(int row, int column, int width) {
  Title(row, column, width, "Counts: " + free_ + " of " + total_ + " free");
  int line = row + 1;
  for (const auto& [ip, neighbour] : desk_.neighbours().list()) {
    if (line >= row + kMiddleRows) break;
    const std::string counts = std::to_string(neighbour.free) + "/" + std::to_string(neighbour.total);
    Put(line++, column + 1, width - 2,
        words::AddressText(ip) + "  " + words::PositionName(neighbour.position) + "  " + counts +
            (neighbour.talking ? "" : "  silent"),
        neighbour.talking ? 0 : A_DIM);
  }
  if (desk_.neighbours().list().empty()) Put(line, column + 1, width - 2, "no neighbour yet: press n", A_DIM);
}

void Screen::DrawBeacon(int row, int column, int width) {
  const auto& module = desk_.beacon();
  Title(row, column, width, "Beacon");
  Put(row + 1, column + 1, width - 2, IdentityText(module.state()));
  Put(row + 2, column + 1, width - 2, SettingsText(module.state()));
  const bool well = module.plugged() && module.manner() == BeaconManner::kPrompt;
  Put(row + 3, column + 1, width - 2, module.plugged() ? MannerName(module.manner()) : "UNPLUGGED",
      well ? Pair(kTextPair + COLOR_GREEN) : Pair(kTextPair + COLOR_YELLOW) | A_BOLD);
}

// The newest lines at the bottom, a third of the room for the serial line.
void Screen::DrawLists(int row, int rows, int width) {
  const auto list = [&](const char* title, const std::deque<Line>& lines, int from, int room) {
    Title(from, 0, width + 1, title);
    const int shown = std::min(room - 1, static_cast<int>(lines.size()));
    for (int i = 0; i < shown; ++i) {
      const Line& line = lines[lines.size() - static_cast<size_t>(shown - i)];
      Put(from + 1 + i, 1, width - 1, line.text, line.pair == 0 ? 0 : Pair(line.pair));
    }
  };
  const int serial_rows = rows >= 6 ? std::max(3, rows / 3) : 0;
  if (serial_rows > 0) list("External line", serial_, row, serial_rows);
  if (rows - serial_rows >= 2) list("Bus and desk", bus_, row + serial_rows, rows - serial_rows);
}

// As many rows as the words need, from the bottom up; returns how many.
int Screen::DrawHelp(int height, int width) {
  std::vector<std::string> rows(1);
  for (const char* word : kHelp) {
    const std::string more = (rows.back().empty() ? " " : "  ") + std::string(word);
    if (!rows.back().empty() && static_cast<int>(rows.back().size() + more.size()) > width) {
      rows.push_back(std::string(" ") + word);
    } else {
      rows.back() += more;
    }
  }
  const int shown = std::min(static_cast<int>(rows.size()), std::max(1, height / 5));
  for (int i = 0; i < shown; ++i) Put(height - shown + i, 0, width, rows[static_cast<size_t>(i)], A_DIM);
  return shown;
}

}  // namespace desk
