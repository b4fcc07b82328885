// Many devices at once, each with a process and a network of its own, so that what one waits for costs the others
// nothing.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace trials {

// What the workers have found: every value that one of them noted under a name.
using Tally = std::map<std::string, std::vector<int>>;

class Notes {
 public:
  explicit Notes(int descriptor) : descriptor_(descriptor) {}
  void Add(const std::string& name, int value) const;  // a name is one line

 private:
  const int descriptor_;
};

// Runs a function so many times side by side, each in a process of its own that ends with its status, and collects
// their notes. "failed" counts those that ended with another status than 0. To be called before there are threads.
Tally RunWorkers(int count, const std::function<int(int worker, const Notes& notes)>& work);

long Sum(const Tally& tally, const std::string& name);

}  // namespace trials
