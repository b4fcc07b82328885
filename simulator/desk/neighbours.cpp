#include "desk/neighbours.h"

#include <json/value.h>

#include "plain_words.h"
#include "protocol/json_text.h"
#include "protocol/names.h"

namespace desk {
namespace {

constexpr Loop::Milliseconds kPeriod(30000);

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
  std::string text = words::AddressText(neighbour.ip) + " " + words::PositionName(neighbour.position) + ": " +
                     std::to_string(neighbour.free) + " of " + std::to_string(neighbour.total) + " free";
  for (const auto& device : neighbour.reports) {
    text += ", reports " + words::AddressText(device.ip) + " with " + std::to_string(device.free) + " of " +
            std::to_string(device.total) + " free";
  }
  return text;
}

}  // namespace desk
