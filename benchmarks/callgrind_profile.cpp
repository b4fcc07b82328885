#include "callgrind_profile.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>

namespace bench {

namespace {

bool After(const std::string& line, const char* head, std::string& rest) {
  const std::string text = head;
  if (line.compare(0, text.size(), text) != 0) return false;
  rest = line.substr(text.size());
  return true;
}

}  // namespace

CallgrindProfile CallgrindProfile::Read(const std::string& path) {
  CallgrindProfile profile;
  std::ifstream file(path);
  std::string rest, caller, callee;
  bool cost_is_of_call = false;
  for (std::string line; std::getline(file, line);) {
    if (After(line, "fn=", rest)) {
      caller = rest;
    } else if (After(line, "cfn=", rest)) {
      callee = rest;
    } else if (After(line, "calls=", rest)) {
      profile.functions[callee].calls += atof(rest.c_str());
      cost_is_of_call = true;
    } else if (!line.empty() && (isdigit(static_cast<unsigned char>(line[0])) != 0)) {  // "line cost"
      const size_t blank = line.find(' ');
      const double cost = blank == std::string::npos ? 0 : atof(line.c_str() + blank);
      if (cost_is_of_call) {
        if (callee != caller) profile.functions[callee].inclusive += cost;
      } else {
        profile.functions[caller].own += cost;
        profile.total += cost;
      }
      cost_is_of_call = false;
    }
  }
  return profile;
}

double CallgrindProfile::Calls(const std::string& name) const {
  const auto found = functions.find(name);
  return found == functions.end() ? 0 : found->second.calls;
}

double CallgrindProfile::PerCall(const std::string& part_of_name) const {
  for (const auto& [name, function] : functions) {
    if (function.calls > 0 && name.find(part_of_name) != std::string::npos) return function.inclusive / function.calls;
  }
  return 0;
}

std::vector<std::pair<std::string, CallgrindProfile::Function>> CallgrindProfile::Largest(size_t count) const {
  std::vector<std::pair<std::string, Function>> sorted(functions.begin(), functions.end());
  std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) { return a.second.own > b.second.own; });
  sorted.resize(std::min(sorted.size(), count));
  return sorted;
}

}  // namespace bench
