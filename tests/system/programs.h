// What these tests share: programs that have to start, command lines as a person types them, files, lists of names.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "../temporary_directory.h"
#include "bringup/device.h"

inline constexpr char kPackaging[] = SOURCE_DIRECTORY "/packaging";

inline void Launch(desk::Process& process) {
  std::string problem;
  EXPECT_TRUE(process.Start(problem)) << problem;
}
// One of a device's programs; it is ready when this returns.
inline void Launch(desk::Device& device, desk::Process& process) {
  std::string problem;
  EXPECT_TRUE(device.StartAndAwait(process, problem)) << problem;
}
inline void MakeFiles(desk::Device& device) {
  std::string problem;
  EXPECT_TRUE(device.MakeFiles(problem)) << problem;
}

struct Outcome {
  int status = -1;
  std::string output;  // standard output and standard error
};

inline Outcome Shell(const std::string& command) {
  Outcome outcome;
  FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return outcome;
  char part[4096];
  for (size_t size; (size = fread(part, 1, sizeof part, pipe)) > 0;) outcome.output.append(part, size);
  const int status = pclose(pipe);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return outcome;
}

inline std::string ReadFile(const std::filesystem::path& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

// What a process takes, "VmRSS:" or at most "VmHWM:", in MB; 0 for one that is gone.
inline double Resident(const desk::Process& process, const std::string& which) {
  const std::string status = ReadFile("/proc/" + std::to_string(process.pid()) + "/status");
  const size_t at = status.find(which);
  return at == std::string::npos ? 0 : std::stod(status.substr(at + which.size())) * 1024 / 1e6;
}

// Whether the name is one of "these and those".
inline bool Among(const std::string& names, const std::string& name) {
  return (" " + names + " ").find(" " + name + " ") != std::string::npos;
}
