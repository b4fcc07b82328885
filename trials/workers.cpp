#include "workers.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <numeric>

namespace trials {

// One line is one write of less than PIPE_BUF: lines of several workers do not mix.
void Notes::Add(const std::string& name, int value) const {
  const std::string line = std::to_string(value) + " " + name + "\n";
  if (write(descriptor_, line.data(), line.size()) != static_cast<ssize_t>(line.size())) abort();
}

Tally RunWorkers(int count, const std::function<int(int, const Notes&)>& work) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) abort();
  const pid_t parent = getpid();
  std::vector<pid_t> workers;
  fflush(nullptr);
  for (int i = 0; i < count; ++i) {
    const pid_t worker = fork();
    if (worker == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (getppid() != parent) _exit(127);
      close(ends[0]);
      const int status = work(i, Notes(ends[1]));
      fflush(nullptr);
      _exit(status);
    }
    if (worker > 0) workers.push_back(worker);
  }
  close(ends[1]);
  Tally tally;
  const std::unique_ptr<FILE, int (*)(FILE*)> notes(fdopen(ends[0], "r"), fclose);
  char line[512];
  while (fgets(line, sizeof line, notes.get()) != nullptr) {
    char* name = nullptr;
    const long value = strtol(line, &name, 10);
    tally[std::string(name).substr(1, std::string(name).find('\n') - 1)].push_back(static_cast<int>(value));
  }
  for (int i = static_cast<int>(workers.size()); i < count; ++i) tally["failed"].push_back(1);
  for (const pid_t worker : workers) {
    int status = -1;
    waitpid(worker, &status, 0);
    if (status != 0) tally["failed"].push_back(1);
  }
  return tally;
}

long Sum(const Tally& tally, const std::string& name) {
  const auto found = tally.find(name);
  return found == tally.end() ? 0 : std::accumulate(found->second.begin(), found->second.end(), 0L);
}

}  // namespace trials
