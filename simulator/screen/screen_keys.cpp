#include <ncurses.h>

#include "desk/neighbours.h"
#include "protocol/commands.h"
#include "protocol/names.h"
#include "screen/screen.h"

namespace desk {
namespace {

constexpr const char* kPlates[] = {"京A12345", "粤B7K9L2", "沪C88888", "川Z00001", "苏E5D6F7", "浙F13579"};
constexpr size_t kPlateCount = sizeof kPlates / sizeof kPlates[0];

struct Around {
  uint32_t ip;
  uint32_t position;
  uint32_t total;
};
constexpr Around kAround[] = {
    {0x1401A8C0, 1, 3},   // 192.168.1.20, left
    {0x1501A8C0, 2, 12},  // 192.168.1.21, right
    {0x1601A8C0, 3, 40},  // 192.168.1.22, front
};
constexpr size_t kAroundCount = sizeof kAround / sizeof kAround[0];

constexpr Loop::Milliseconds kSlow(70);

}  // namespace

void Screen::HandleKey(int key) {
  constexpr int kEscape = 27;
  switch (key) {
    case '1':
    case '2':
    case '3':
      ToggleCar(static_cast<size_t>(key - '0'));
      break;
    case '4':
    case '5':
    case '6':
      ToggleLine(static_cast<size_t>(key - '3'));
      break;
    case '7':
      ToggleProcess(desk_.broker());
      break;
    case '8':
      ToggleProcess(desk_.store());
      break;
    case '9':
      ToggleProcess(desk_.daemon());
      break;
    case 'n':
      NextPush();
      break;
    case 's':
      if (last_pushed_ != 0) desk_.NeighbourFallsSilent(last_pushed_);
      break;
    case 'd':
      ToggleDisplays();
      break;
    case 'b':
      desk_.PlugBeacon(!desk_.beacon().plugged());
      break;
    case 'm':
      NextManner();
      break;
    case 'c':
      change_.Make();
      break;
    case 'l':
    case kEscape:
      end_ = End::kLeave;
      ended_ = true;
      break;
    case 'q':
      end_ = End::kQuit;
      ended_ = true;
      break;
    default:
      break;
  }
}

void Screen::ToggleCar(size_t space) {
  if (desk_.recogniser().space(space).space_status != 0) {
    desk_.CarLeaves(space);
  } else {
    desk_.CarArrives(space, kPlates[next_plate_++ % kPlateCount]);
  }
}

void Screen::ToggleLine(size_t space) {
  desk_.CrossesLine(space, desk_.recogniser().space(space).occupy_line == 1 ? 0 : 1);
}

// The device knows the displays from its settings only: 1 front, 2 left, 3 right.
void Screen::ToggleDisplays() {
  namespace bs = businessserver;
  displays_wired_ = !displays_wired_;
  const int on = displays_wired_ ? 1 : 0;
  Json::Value body;
  body[bs::kProto] = 0;
  body[bs::kFEna] = body[bs::kLEna] = body[bs::kREna] = on;
  body[bs::kFAddr] = 1;
  body[bs::kLAddr] = 2;
  body[bs::kRAddr] = 3;
  desk_.Request(bs::kSetExtTtyioCfg, CompactText(body));
}

// Each push changes something: the next neighbour, with one more free space than it had.
void Screen::NextPush() {
  const Around& around = kAround[next_push_++ % kAroundCount];
  Neighbour neighbour;
  neighbour.ip = around.ip;
  neighbour.position = around.position;
  neighbour.total = around.total;
  const auto known = desk_.neighbours().list().find(around.ip);
  if (known != desk_.neighbours().list().end()) neighbour.free = (known->second.free + 1) % (around.total + 1);
  if (known == desk_.neighbours().list().end()) neighbour.free = around.total / 2;
  last_pushed_ = around.ip;
  desk_.NeighbourPushes(neighbour);
}

void Screen::NextManner() {
  const size_t now = static_cast<size_t>(desk_.beacon().manner());
  const BeaconMannerName& next = kBeaconManners[(now + 1) % std::size(kBeaconManners)];
  const bool slow = next.manner == BeaconManner::kSlow;
  desk_.BeaconBehaves(next.manner, kSlow, next.word + (slow ? " by " + std::to_string(kSlow.count()) + " ms" : ""));
}

void Screen::ToggleProcess(Process& process) {
  if (process.running()) {
    desk_.KillProcess(process);
  } else {
    desk_.StartProcess(process);
  }
}

}  // namespace desk
