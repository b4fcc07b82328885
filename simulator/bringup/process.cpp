#include "bringup/process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace desk {
namespace {

constexpr Loop::Milliseconds kStopLimit(1000);

std::string HowItEnded(int status) {
  if (WIFSIGNALED(status)) return std::string("by signal ") + std::to_string(WTERMSIG(status));
  return "with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

Process::~Process() {
  on_exit_ = nullptr;
  on_line_ = nullptr;
  Stop();
}

void Process::Configure(std::vector<std::string> command, std::string directory, const Network* network) {
  command_ = std::move(command);
  directory_ = std::move(directory);
  network_ = network;
}

bool Process::Start(std::string& problem) {
  if (running()) return true;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    problem = std::string("no pipe for ") + name_ + ": " + strerror(errno);
    return false;
  }
  const pid_t desk = getpid();
  pid_ = fork();
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != desk) _exit(127);  // the desk was gone before the line above
    RunChild(ends[1]);
  }
  close(ends[1]);
  if (pid_ < 0) {
    problem = "cannot start " + name_ + ": " + strerror(errno);
    close(ends[0]);
    return false;
  }
  frozen_ = false;
  end_ = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
  loop_.Watch(end_, [this] { NoticeEnd(); });
  output_ = ends[0];
  fcntl(output_, F_SETFL, O_NONBLOCK);
  mkdir((directory_ + "/log").c_str(), 0755);
  log_ = open((directory_ + "/log/" + name_ + ".log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  loop_.Watch(output_, [this] { ReadOutput(); });
  return true;
}

// Its own process group: an interrupt from the terminal is for the desk, which then ends the programs in order.
void Process::RunChild(int output) const {
  setpgid(0, 0);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) signal(number, SIG_DFL);
  dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  std::vector<char*> arguments;
  for (const auto& word : command_) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  if (network_ != nullptr && !network_->Enter()) dprintf(STDERR_FILENO, "no way into the network\n");
  if (chdir(directory_.c_str()) == 0) execvp(arguments[0], arguments.data());
  dprintf(STDERR_FILENO, "cannot run %s: %s\n", arguments[0], strerror(errno));
  _exit(127);
}

void Process::ReadOutput() {
  char chunk[4096];
  ssize_t size;
  while ((size = read(output_, chunk, sizeof chunk)) > 0) {
    if (log_ >= 0 && write(log_, chunk, static_cast<size_t>(size)) < 0) break;
    partial_line_.append(chunk, static_cast<size_t>(size));
    for (size_t end; (end = partial_line_.find('\n')) != std::string::npos;) {
      const std::string line = partial_line_.substr(0, end);
      partial_line_.erase(0, end + 1);
      if (on_line_) on_line_(line);
    }
  }
  // A grandchild may keep the other end open; the end of file alone ends the watch.
  if (size == 0) CloseOutput();
}

void Process::CloseOutput() {
  if (output_ >= 0) {
    loop_.Unwatch(output_);
    close(output_);
    output_ = -1;
  }
  if (log_ >= 0) close(log_);
  log_ = -1;
}

void Process::Gone(int status, bool expected) {
  if (output_ >= 0) ReadOutput();
  CloseOutput();
  loop_.Unwatch(end_);
  close(end_);
  partial_line_.clear();
  pid_ = -1;
  frozen_ = false;
  if (on_exit_) on_exit_(expected ? "" : HowItEnded(status));
  if (rest_.count() < 0) return;
  restart_ = loop_.After(rest_, [this] {
    std::string problem;
    if (!Start(problem) && on_line_) on_line_(problem);
  });
}

void Process::NoticeEnd() {
  int status = 0;
  if (running() && waitpid(pid_, &status, WNOHANG) == pid_) Gone(status, false);
}

void Process::Kill() {
  if (!running()) return;
  kill(pid_, SIGKILL);
  int status = 0;
  waitpid(pid_, &status, 0);
  Gone(status, true);
}

void Process::Stop() {
  rest_ = Loop::Milliseconds(-1);
  loop_.Cancel(restart_);
  if (!running()) return;
  Thaw();
  kill(pid_, SIGTERM);
  const auto end = Loop::Clock::now() + kStopLimit;
  while (Loop::Clock::now() < end) {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      Gone(status, true);
      return;
    }
    if (output_ >= 0) ReadOutput();  // a full pipe would keep it from ending
    usleep(2000);
  }
  Kill();
}

void Process::Freeze() {
  if (!running()) return;
  kill(pid_, SIGSTOP);
  frozen_ = true;
}

void Process::Thaw() {
  if (!running() || !frozen_) return;
  kill(pid_, SIGCONT);
  frozen_ = false;
}

}  // namespace desk
