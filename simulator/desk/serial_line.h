// What hangs on the external line: a listener that reads every frame by the stored field list, and the three guidance
// displays at the addresses that the stored settings give them.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <json/value.h>

#include "bringup/loop.h"
#include "bringup/pty.h"
#include "configurable_frame.h"
#include "desk/journal.h"
#include "desk/store_client.h"

namespace desk {

struct Display {
  const char* name;
  const char* enabled_key;
  const char* address_key;
  std::string digits;  // empty: nothing received yet
};

// Name of the fact that marks a display frame which changes nothing.
inline constexpr char kRepeated[] = "repeated";

class SerialLine {
 public:
  SerialLine(Loop& loop, Pty& line, StoreClient& store, Journal& journal);
  ~SerialLine();
  SerialLine(const SerialLine&) = delete;
  SerialLine& operator=(const SerialLine&) = delete;

  // The daemon forgets what earlier field lists set.
  void DaemonEnded() { list_ = {}; }

  // Bytes from a device in the field.
  void Send(const std::string& bytes);

  const std::array<Display, 3>& displays() const { return displays_; }

 private:
  void Receive(const std::string& bytes);
  void BurstEnded();
  void Report(const words::DecodedFrame& frame, const std::string& bytes);
  std::vector<const Display*> Show(const std::string& address, const std::string& digits);

  Loop& loop_;
  Pty& line_;
  StoreClient& store_;
  Journal& journal_;
  std::array<Display, 3> displays_;
  std::string burst_;
  uint64_t gap_timer_ = 0;
  Json::Value field_list_;
  words::FieldList list_;  // what field_list_ and the lists before it say
  Json::Value settings_;
};

}  // namespace desk
