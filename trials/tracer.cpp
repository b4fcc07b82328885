#include "tracer.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <map>

namespace trials {
namespace {

// What files, peers and the supervisor notice.
const std::map<uint64_t, const char*>& Marks() {
  static const std::map<uint64_t, const char*> marks = {
      {SYS_write, "write"},     {SYS_writev, "writev"},     {SYS_pwrite64, "pwrite"},     {SYS_sendto, "send"},
      {SYS_sendmsg, "sendmsg"}, {SYS_fsync, "fsync"},       {SYS_fdatasync, "fdatasync"}, {SYS_ftruncate, "ftruncate"},
      {SYS_renameat, "rename"}, {SYS_renameat2, "rename"},  {SYS_unlinkat, "unlink"},     {SYS_openat, "open"},
      {SYS_close, "close"},     {SYS_shutdown, "shutdown"}, {SYS_connect, "connect"},     {SYS_accept4, "accept"},
#ifdef SYS_rename
      {SYS_rename, "rename"},   {SYS_unlink, "unlink"},
#endif
  };
  return marks;
}

constexpr char kAttached = '+';

void Tell(int report, const std::string& what) {
  if (write(report, what.data(), what.size()) < 0) _exit(127);
}

// All threads, since they end together; the calls of the first count. The kernel adds those that begin later.
bool Attach(pid_t program) {
  const std::string tasks = "/proc/" + std::to_string(program) + "/task";
  DIR* const directory = opendir(tasks.c_str());
  if (directory == nullptr) return false;
  bool good = true;
  while (const dirent* entry = readdir(directory)) {
    const pid_t task = atoi(entry->d_name);
    if (task <= 0) continue;
    const long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE;
    good = ptrace(PTRACE_SEIZE, task, 0, options) == 0 && ptrace(PTRACE_INTERRUPT, task, 0, 0) == 0 && good;
  }
  closedir(directory);
  return good;
}

[[noreturn]] void Trace(pid_t program, int call, Moment moment, bool every_call, int report) {
  if (!Attach(program)) _exit(127);
  std::map<pid_t, const char*> counted;  // threads in a call that is one of those
  bool told = false;
  for (;;) {
    int status = 0;
    const pid_t task = waitpid(-1, &status, __WALL);
    if (task < 0) _exit(0);
    if (!WIFSTOPPED(status)) continue;
    int deliver = 0;
    const int stopped_by = WSTOPSIG(status);
    if (stopped_by == (SIGTRAP | 0x80)) {
      __ptrace_syscall_info info{};
      if (ptrace(PTRACE_GET_SYSCALL_INFO, task, sizeof info, &info) > 0) {
        const bool enters = info.op == PTRACE_SYSCALL_INFO_ENTRY;
        const auto mark = enters ? Marks().find(info.entry.nr) : Marks().end();
        if (enters) counted[task] = mark != Marks().end() ? mark->second : every_call ? "other" : nullptr;
        if (counted[task] != nullptr && task == program && enters == (moment == Moment::kBefore) && --call == 0) {
          kill(program, SIGKILL);
          Tell(report, counted[task]);
          while (waitpid(-1, &status, __WALL) > 0) {
          }
          _exit(0);
        }
      }
    } else if (status >> 16 == 0) {
      deliver = stopped_by;
    } else if (!told && task == program) {
      told = true;
      Tell(report, std::string(1, kAttached));
    }
    ptrace(PTRACE_SYSCALL, task, 0, deliver);
  }
}

}  // namespace

Tracer::Tracer(pid_t program, int call, Moment moment, bool every_call) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  process_ = fork();
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    Trace(program, call, moment, every_call, ends[1]);
  }
  close(ends[1]);
  report_ = ends[0];
  char first = 0;
  attached_ = read(report_, &first, 1) == 1 && first == kAttached;
  fcntl(report_, F_SETFL, O_NONBLOCK);
}

Tracer::~Tracer() {
  if (report_ >= 0) close(report_);
  if (process_ <= 0) return;
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

bool Tracer::HasKilled() {
  char text[32];
  const ssize_t size = call_.empty() ? read(report_, text, sizeof text) : 0;
  if (size > 0) call_.assign(text, static_cast<size_t>(size));
  return !call_.empty();
}

}  // namespace trials
