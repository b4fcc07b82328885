#include "report_parts.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>

namespace parkctl {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kNoSuchProgram = 127;

struct Running {
  pid_t pid = -1;
  int output = -1;
};

[[noreturn]] void Become(const std::vector<std::string>& command, int output) {
  setpgid(0, 0);
  const int nothing = open("/dev/null", O_RDONLY);
  dup2(nothing, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  signal(SIGPIPE, SIG_DFL);
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  execvp(words[0], words.data());
  _exit(kNoSuchProgram);
}

Running Launch(const std::vector<std::string>& command) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return {};
  const pid_t pid = fork();
  if (pid == 0) Become(command, ends[1]);
  close(ends[1]);
  if (pid < 0) {
    close(ends[0]);
    return {};
  }
  setpgid(pid, pid);  // whichever of the two comes first
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  return {pid, ends[0]};
}

// False when there is no more to come.
bool TakeOutput(int fd, std::string& output) {
  char part[16384];
  const ssize_t size = read(fd, part, sizeof part);
  if (size < 0) return errno == EAGAIN || errno == EINTR;
  output.append(part, std::min(static_cast<size_t>(size), kLongestPart - std::min(kLongestPart, output.size())));
  return size > 0;
}

void Finish(Running& running, PartResult& result, Clock::time_point start, bool in_time) {
  close(running.output);
  running.output = -1;
  // What has closed its output may still live, and what it started may hold the output open.
  if (!in_time) kill(-running.pid, SIGKILL);
  int status = 0;
  waitpid(running.pid, &status, 0);
  result.took = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
  if (!in_time) {
    result.end = PartResult::End::kTooLate;
  } else if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    result.end = PartResult::End::kDone;
  } else {
    result.end = WIFEXITED(status) && WEXITSTATUS(status) == kNoSuchProgram ? PartResult::End::kNotStarted
                                                                            : PartResult::End::kFailed;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
}

}  // namespace

std::vector<PartResult> RunParts(const std::vector<ReportPart>& parts, milliseconds limit) {
  const Clock::time_point start = Clock::now();
  std::vector<PartResult> results(parts.size());
  std::vector<Running> running;
  running.reserve(parts.size());
  for (const ReportPart& part : parts) running.push_back(Launch(part.command));
  for (;;) {
    std::vector<pollfd> waiting;
    std::vector<size_t> whose;
    for (size_t i = 0; i < running.size(); ++i) {
      if (running[i].output < 0) continue;
      waiting.push_back({running[i].output, POLLIN, 0});
      whose.push_back(i);
    }
    const auto left = std::chrono::ceil<milliseconds>(start + limit - Clock::now()).count();
    if (waiting.empty() || left <= 0) break;
    poll(waiting.data(), waiting.size(), static_cast<int>(left));
    for (size_t n = 0; n < waiting.size(); ++n) {
      const size_t i = whose[n];
      if (waiting[n].revents != 0 && !TakeOutput(running[i].output, results[i].output)) {
        Finish(running[i], results[i], start, true);
      }
    }
  }
  for (size_t i = 0; i < running.size(); ++i) {
    if (running[i].output >= 0) Finish(running[i], results[i], start, false);
  }
  return results;
}

std::string EndText(const PartResult& result, milliseconds limit) {
  const auto seconds = [](milliseconds time) {
    char text[32];
    snprintf(text, sizeof text, "%.1f s", static_cast<double>(time.count()) / 1000);
    return std::string(text);
  };
  switch (result.end) {
    case PartResult::End::kDone:
      return "done in " + seconds(result.took);
    case PartResult::End::kFailed:
      return "NOT ALL OF IT: ended with status " + std::to_string(result.status) + " after " + seconds(result.took);
    case PartResult::End::kTooLate:
      return "NOT ALL OF IT: took longer than " + seconds(limit) + " and was ended";
    case PartResult::End::kNotStarted:
      break;
  }
  return "NOTHING: the program is not here, or did not start";
}

}  // namespace parkctl
