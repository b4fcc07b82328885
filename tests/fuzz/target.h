// The form of a fuzz target: FUZZ_TARGET(input) { ... }, where input is the text to be survived.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#define MUST_HOLD(condition) \
  if (!(condition)) fprintf(stderr, "does not hold: %s (%s:%d)\n", #condition, __FILE__, __LINE__), abort()

#define FUZZ_TARGET(input)                                                   \
  static void FuzzOne(std::string_view input);                               \
  extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) { \
    FuzzOne(std::string_view(reinterpret_cast<const char*>(bytes), size));   \
    return 0;                                                                \
  }                                                                          \
  static void FuzzOne(std::string_view input)
