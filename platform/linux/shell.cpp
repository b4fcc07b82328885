#include "shell.h"

#include <signal.h>
#include <time.h>

#include <cerrno>
#include <cstdlib>

namespace {

// Gives a signal its default action for as long as it lives.
class DefaultAction {
 public:
  explicit DefaultAction(int signal) : signal_(signal) {
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigaction(signal_, &action, &saved_);
  }
  ~DefaultAction() { sigaction(signal_, &saved_, nullptr); }
  DefaultAction(const DefaultAction&) = delete;
  DefaultAction& operator=(const DefaultAction&) = delete;

 private:
  const int signal_;
  struct sigaction saved_;
};

}  // namespace

int RunShellCommand(const char* command_line) {
  if (command_line == nullptr) return -1;
  // Ignored signals stay ignored in the programs that the shell starts, among them sibling processes that run for
  // days: they get the dispositions that every program expects. An ignored SIGCHLD would also lose the wait status.
  // Nothing is written by this process while it waits.
  const DefaultAction broken_pipe(SIGPIPE);
  const DefaultAction child(SIGCHLD);
  return std::system(command_line);
}

void SleepMicroseconds(unsigned microseconds) {
  timespec left = {static_cast<time_t>(microseconds / 1000000), static_cast<long>(microseconds % 1000000) * 1000};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}
