#include "process.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace bench {

Process::Process(const std::vector<std::string>& command, const std::string& directory, Streams streams) {
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("no process for " + command[0]);
  if (pid_ > 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  const int output = streams.output < 0 ? nothing : streams.output;
  dup2(streams.input < 0 ? nothing : streams.input, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  if (chdir(directory.c_str()) == 0) execvp(words[0], words.data());
  _exit(127);
}

Process::~Process() {
  kill(pid_, SIGTERM);
  for (int i = 0; i < 200; ++i) {
    if (waitpid(pid_, nullptr, WNOHANG) == pid_) return;
    usleep(10000);
  }
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

bool Process::IsRunning() const { return waitpid(pid_, nullptr, WNOHANG) == 0; }

std::string Process::Read(const char* file) const {
  std::ostringstream text;
  text << std::ifstream("/proc/" + std::to_string(pid_) + "/" + file).rdbuf();
  return text.str();
}

// The number after a key at the head of a line.
uint64_t Process::Number(const char* file, const char* key) const {
  const std::string text = "\n" + Read(file);
  const std::string line_head = std::string("\n") + key;
  const size_t at = text.find(line_head);
  if (at == std::string::npos) throw std::runtime_error(std::string("no ") + key + " in /proc/PID/" + file);
  return strtoull(text.c_str() + at + line_head.size(), nullptr, 10);
}

double Process::CpuSeconds() const {
  return static_cast<double>(strtoull(Read("schedstat").c_str(), nullptr, 10)) / 1e9;
}
uint64_t Process::WakeUps() const { return Number("status", "voluntary_ctxt_switches:"); }
uint64_t Process::ResidentBytes() const { return Number("smaps_rollup", "Rss:") * 1024; }
uint64_t Process::ProportionalBytes() const { return Number("smaps_rollup", "Pss:") * 1024; }
uint64_t Process::PrivateBytes() const { return Number("smaps_rollup", "Private_Dirty:") * 1024; }

unsigned Process::Descriptors() const {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(("/proc/" + std::to_string(pid_) + "/fd").c_str()),
                                                      closedir);
  unsigned count = 0;
  while (directory && readdir(directory.get()) != nullptr) ++count;
  return count < 2 ? 0 : count - 2;  // . and ..
}

std::string OutputOf(const std::string& shell_command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(shell_command.c_str(), "r"), pclose);
  std::string output;
  char chunk[4096];
  while (pipe && fgets(chunk, sizeof chunk, pipe.get()) != nullptr) output += chunk;
  return output;
}

}  // namespace bench
