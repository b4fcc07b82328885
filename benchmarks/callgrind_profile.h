// Reads the profile that callgrind writes: what it counted in all, and between which functions.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace bench {

struct CallgrindProfile {
  struct Function {
    double calls = 0;
    double own = 0;        // instructions of the function itself
    double inclusive = 0;  // and of all that it calls
  };
  double total = 0;
  std::map<std::string, Function> functions;

  // Written with --compress-strings=no --compress-pos=no.
  static CallgrindProfile Read(const std::string& path);

  // The calls of a function by its exact name.
  double Calls(const std::string& name) const;

  // Instructions of one call, callees included, of the first function whose name holds this text; 0 when never called.
  double PerCall(const std::string& part_of_name) const;

  // The functions with the largest own share, largest first.
  std::vector<std::pair<std::string, Function>> Largest(size_t count) const;
};

}  // namespace bench
