// A program under measurement and what the system knows of it. It dies with this one.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

class Process {
 public:
  // Descriptors that take the place of its input and of both outputs; -1 for none.
  struct Streams {
    int input = -1;
    int output = -1;
  };

  // Throws std::runtime_error when there is no process.
  Process(const std::vector<std::string>& command, const std::string& directory, Streams streams);
  Process(const std::vector<std::string>& command, const std::string& directory)
      : Process(command, directory, Streams()) {}
  ~Process();  // SIGTERM, SIGKILL after two seconds, and gone when this returns
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t pid() const { return pid_; }
  bool IsRunning() const;

  double CpuSeconds() const;
  uint64_t WakeUps() const;            // how often it ran after having waited
  uint64_t ResidentBytes() const;      // RSS
  uint64_t ProportionalBytes() const;  // PSS: shared pages count by share
  uint64_t PrivateBytes() const;       // its own dirty pages
  unsigned Descriptors() const;

 private:
  std::string Read(const char* file) const;
  uint64_t Number(const char* file, const char* key) const;

  pid_t pid_ = -1;
};

// Runs it to its end and returns what it printed.
std::string OutputOf(const std::string& shell_command);

}  // namespace bench
