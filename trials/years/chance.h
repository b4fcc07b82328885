// Numbers that look drawn and are computed: the same on every machine, library and run.
#pragma once

#include <cstdint>
#include <string_view>

namespace years {

// SplitMix64 (Steele, Lea, Flood 2014). A stream of its own for everything that must not change when something else
// draws more or less.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  Random(uint64_t seed, uint64_t stream) : state_(seed ^ (stream + 1) * 0xD1B54A32D192ED03u) { Next(); }

  uint64_t Next() {
    state_ += 0x9E3779B97F4A7C15u;
    uint64_t mixed = state_;
    mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9u;
    mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EBu;
    return mixed ^ mixed >> 31;
  }
  uint64_t Below(uint64_t limit) { return limit == 0 ? 0 : Next() % limit; }
  uint64_t Between(uint64_t low, uint64_t high) { return low + Below(high - low + 1); }  // both included
  bool Chance(unsigned of_a_thousand) { return Below(1000) < of_a_thousand; }

 private:
  uint64_t state_;
};

// FNV-1a over everything that is added, lengths included.
class Digest {
 public:
  void Add(std::string_view bytes) {
    Add(bytes.size());
    for (const char byte : bytes) Mix(static_cast<uint8_t>(byte));
  }
  void Add(uint64_t number) {
    for (int shift = 0; shift < 64; shift += 8) Mix(static_cast<uint8_t>(number >> shift));
  }
  uint64_t Value() const { return value_; }

 private:
  void Mix(uint8_t byte) { value_ = (value_ ^ byte) * 0x100000001B3u; }

  uint64_t value_ = 0xCBF29CE484222325u;
};

}  // namespace years
