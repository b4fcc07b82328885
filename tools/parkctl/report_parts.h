// Programs that are asked at the same time, each for as long as it may take: what one of them says, or that it said
// nothing, holds up no other.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace parkctl {

struct ReportPart {
  std::string name;                  // of its file in the archive
  std::string what;                  // for people
  std::vector<std::string> command;  // searched for in PATH
};

struct PartResult {
  enum class End { kDone, kFailed, kTooLate, kNotStarted };

  std::string output;  // standard output and standard error
  End end = End::kNotStarted;
  int status = 0;  // of kFailed
  std::chrono::milliseconds took{0};
};

constexpr size_t kLongestPart = 4 * 1024 * 1024;  // bytes of output that are taken; the rest is dropped

// One result for each part. Those that are not done within the limit are ended, with all that they have started.
std::vector<PartResult> RunParts(const std::vector<ReportPart>& parts, std::chrono::milliseconds limit);

// "done in 0.1 s", "not done: took longer than 6 s and was ended".
std::string EndText(const PartResult& result, std::chrono::milliseconds limit);

}  // namespace parkctl
