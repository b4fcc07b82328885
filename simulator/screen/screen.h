// The live screen: the whole device at a glance, and keys that do what cars, neighbours and hands on the desk do.
#pragma once

#include <deque>
#include <string>

#include "desk/desk.h"
#include "screen/bad_change.h"

namespace desk {

class Screen {
 public:
  enum class End { kLeave, kQuit };  // back to the lines, or the end of it all

  Screen(Desk& desk, const std::string& parkctl);

  // Shows the screen until a key or interrupted ends it. False when the terminal cannot do it; problem says why.
  bool Run(const Loop::Condition& interrupted, End& end, std::string& problem);

 private:
  struct Line {
    std::string text;
    int pair;
  };

  void Note(const Event& event);

  // ---- keys: screen_keys.cpp ----
  void HandleKey(int key);
  void ToggleCar(size_t space);
  void ToggleLine(size_t space);
  void ToggleDisplays();
  void NextPush();
  void NextManner();
  void ToggleProcess(Process& process);

  // ---- drawing: screen_draw.cpp ----
  void Draw();
  void DrawHeader(int width);
  int DrawChange(int row, int width);
  int DrawTop(int row, int width);
  int DrawMiddle(int row, int width);
  void DrawLists(int row, int rows, int width);
  void DrawSpaces(int row, int column, int width);
  void DrawLamp(int row, int column, int width);
  void DrawDisplays(int row, int column, int width);
  void DrawCounts(int row, int column, int width);
  void DrawBeacon(int row, int column, int width);
  int DrawHelp(int height, int width);

  Desk& desk_;
  BadChange change_;
  std::deque<Line> serial_;
  std::deque<Line> bus_;
  std::string total_ = "-";
  std::string free_ = "-";
  bool displays_wired_ = false;
  size_t next_plate_ = 0;
  size_t next_push_ = 0;
  uint32_t last_pushed_ = 0;
  bool ended_ = false;
  End end_ = End::kLeave;
};

}  // namespace desk
