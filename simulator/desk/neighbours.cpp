#include "desk/neighbours.h"

#include <json/value.h>

#include <cstdlib>

#include "plain_words.h"
#include "protocol/frame_info.h"
#include "protocol/json_text.h"
#include "protocol/names.h"

namespace desk {
namespace {

constexpr Loop::Milliseconds kPeriod(30000);

constexpr const char* kPositions[] = {"own", "left", "right", "front"};
static_assert(businessserver::kOwnGroup == 0 && businessserver::kLeft == 1 && businessserver::kRight == 2 &&
              businessserver::kFront == 3);
constexpr uint32_t kPositionCount = sizeof kPositions / sizeof kPositions[0];

}  // namespace

Neighbours::Neighbours(Loop& loop, Publisher publish) : loop_(loop), publish_(std::move(publish)) {
  timer_ = loop_.Every(kPeriod, [this] {
    for (const auto& [ip, neighbour] : list_) {
      if (neighbour.talking) publish_(neighbour);
    }
  });
}

Neighbours::~Neighbours() { loop_.Cancel(timer_); }

void Neighbours::Push(const Neighbour& neighbour) {
  list_[neighbour.ip] = neighbour;
  publish_(neighbour);
}

bool Neighbours::Silence(uint32_t ip) {
  const auto found = list_.find(ip);
  if (found == list_.end()) return false;
  found->second.talking = false;
  return true;
}

bool ParsePosition(const std::string& word, uint32_t& position) {
  for (uint32_t i = 0; i < kPositionCount; ++i) {
    if (word != kPositions[i]) continue;
    position = i;
    return true;
  }
  char* end = nullptr;
  position = static_cast<uint32_t>(strtoul(word.c_str(), &end, 10));
  return !word.empty() && *end == '\0' && word[0] != '-';
}

std::string PositionName(uint32_t position) {
  return position < kPositionCount ? kPositions[position] : "position " + std::to_string(position);
}

std::string PushDocument(const Neighbour& neighbour) {
  namespace bs = businessserver;
  Json::Value document;
  document[bs::kSAddr] = neighbour.ip;
  document[bs::kTotle] = neighbour.total;
  document[bs::kFree] = neighbour.free;
  document[bs::kPos] = neighbour.position;
  document[bs::kCmDev] = Json::nullValue;
  for (const auto& device : neighbour.reports) {
    Json::Value entry;
    entry[bs::kIp] = device.ip;
    entry[bs::kTn] = device.total;
    entry[bs::kFn] = device.free;
    document[bs::kCmDev].append(entry);
  }
  return bs::StyledText(document);
}

std::string NeighbourText(const Neighbour& neighbour) {
  std::string text = words::AddressText(neighbour.ip) + " " + PositionName(neighbour.position) + ": " +
                     std::to_string(neighbour.free) + " of " + std::to_string(neighbour.total) + " free";
  for (const auto& device : neighbour.reports) {
    text += ", reports " + words::AddressText(device.ip) + " with " + std::to_string(device.free) + " of " +
            std::to_string(device.total) + " free";
  }
  return text;
}

}  // namespace desk
