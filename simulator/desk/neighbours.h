// The other devices of the car park, as the relay in front of the bus delivers them: each pushes its counts when they
// change and again every 30 seconds, until it falls silent.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "bringup/loop.h"

namespace desk {

// A device without a voice of its own: a neighbour reports it.
struct ReportedDevice {
  uint32_t ip;
  uint32_t total;
  uint32_t free;
};

struct Neighbour {
  uint32_t ip = 0;
  uint32_t position = 0;
  uint32_t total = 0;
  uint32_t free = 0;
  std::vector<ReportedDevice> reports;
  bool talking = true;
};

class Neighbours {
 public:
  using Publisher = std::function<void(const Neighbour&)>;

  Neighbours(Loop& loop, Publisher publish);
  ~Neighbours();
  Neighbours(const Neighbours&) = delete;
  Neighbours& operator=(const Neighbours&) = delete;

  void Push(const Neighbour& neighbour);
  bool Silence(uint32_t ip);  // false when there is no such neighbour

  const std::map<uint32_t, Neighbour>& list() const { return list_; }

 private:
  Loop& loop_;
  Publisher publish_;
  uint64_t timer_;
  std::map<uint32_t, Neighbour> list_;
};

std::string PushDocument(const Neighbour& neighbour);
std::string NeighbourText(const Neighbour& neighbour);

}  // namespace desk
