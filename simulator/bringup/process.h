// A program that the desk runs: started in the desk's directory, its output kept line by line in log/<name>.log. It
// dies with the desk, however that ends.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "bringup/loop.h"

namespace desk {

class Process {
 public:
  Process(Loop& loop, std::string name) : loop_(loop), name_(std::move(name)) {}
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  void Configure(std::vector<std::string> command, std::string directory);
  void OnLine(std::function<void(const std::string&)> on_line) { on_line_ = std::move(on_line); }
  void OnExit(std::function<void(const std::string& how)> on_exit) { on_exit_ = std::move(on_exit); }

  bool Start(std::string& problem);
  void Kill();    // SIGKILL, and gone when this returns
  void Stop();    // SIGTERM, SIGKILL after a second, and gone when this returns
  void Freeze();  // stopped where it is, until Thaw
  void Thaw();

  // Notices an end that nobody asked for. To be called now and then.
  void Check();

  const std::string& name() const { return name_; }
  bool running() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }

 private:
  [[noreturn]] void RunChild(int output) const;
  void ReadOutput();
  void CloseOutput();
  void Gone(int status, bool expected);

  Loop& loop_;
  std::string name_;
  std::vector<std::string> command_;
  std::string directory_;
  std::function<void(const std::string&)> on_line_;
  std::function<void(const std::string&)> on_exit_;
  pid_t pid_ = -1;
  bool frozen_ = false;
  int output_ = -1;
  int log_ = -1;
  std::string partial_line_;
};

}  // namespace desk
