// A program that the desk runs: started in the desk's directory, its output kept line by line in log/<name>.log. It
// dies with the desk, however that ends.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "bringup/loop.h"
#include "bringup/network.h"

namespace desk {

class Process {
 public:
  Process(Loop& loop, std::string name) : loop_(loop), name_(std::move(name)) {}
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  // Without a network it runs in that of the desk.
  void Configure(std::vector<std::string> command, std::string directory, const Network* network = nullptr);
  void OnLine(std::function<void(const std::string&)> on_line) { on_line_ = std::move(on_line); }
  void OnExit(std::function<void(const std::string& how)> on_exit) { on_exit_ = std::move(on_exit); }

  bool Start(std::string& problem);
  void Kill();    // SIGKILL, and gone when this returns
  void Stop();    // SIGTERM, SIGKILL after a second, and gone when this returns
  void Freeze();  // stopped where it is, until Thaw
  void Thaw();

  // From now on it is started again whenever it ends other than by Stop, this long after its end, as the device's
  // supervisor does.
  void KeepRunning(Loop::Milliseconds rest) { rest_ = rest; }

  const std::string& name() const { return name_; }
  bool running() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }

 private:
  [[noreturn]] void RunChild(int output) const;
  void ReadOutput();
  void CloseOutput();
  void NoticeEnd();
  void Gone(int status, bool expected);

  Loop& loop_;
  std::string name_;
  std::vector<std::string> command_;
  std::string directory_;
  const Network* network_ = nullptr;
  Loop::Milliseconds rest_{-1};  // before it is started again; none when negative
  uint64_t restart_ = 0;
  std::function<void(const std::string&)> on_line_;
  std::function<void(const std::string&)> on_exit_;
  pid_t pid_ = -1;
  int end_ = -1;  // can be read when the process has ended
  bool frozen_ = false;
  int output_ = -1;
  int log_ = -1;
  std::string partial_line_;
};

}  // namespace desk
