// "parkctl result" and "parkctl push": what the recognition process and a neighbouring device would send.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "record_text.h"

namespace parkctl {

struct ResultOptions {
  uint16_t bus_port = 0;
  bool change = false;  // the other type, which is not forwarded
  std::string record_text;
  std::vector<GivenOption> spaces;
  bool force = false;  // sent although it is not valid
};
int SendResult(const ResultOptions& options);

struct PushOptions {
  uint16_t bus_port = 0;
  std::string address;
  uint32_t total = 0;
  uint32_t free = 0;
  std::string position = "own";
  std::vector<std::string> devices;  // "ADDRESS:TOTAL:FREE", reported for by the sender
  bool force = false;                // sent although it is not valid
};
int SendPush(const PushOptions& options);

}  // namespace parkctl
