// "parkctl decode": what bytes of the serial lines say.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace parkctl {

struct DecodeOptions {
  uint16_t store_port = 0;
  std::vector<std::string> words;  // hexadecimal bytes, a line of the beacon link, or - for standard input
  std::string fields;              // file with the field list; empty: the device's own
};

// kRefused when some bytes could not be decoded.
int Decode(const DecodeOptions& options);

}  // namespace parkctl
