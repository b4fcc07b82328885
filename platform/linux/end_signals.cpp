#include "end_signals.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <utility>

namespace platform {

namespace {

constexpr int kSignals[] = {SIGTERM, SIGINT};
constexpr unsigned kPatienceSeconds = 2;

int pipe_ends[2] = {-1, -1};
volatile std::sig_atomic_t received = 0;

void End() {
  std::signal(received, SIG_DFL);
  raise(received);
}

void OnAlarm(int) { End(); }

// A second one ends the process at once.
void OnEndSignal(int number) {
  received = number;
  std::signal(SIGALRM, OnAlarm);
  alarm(kPatienceSeconds);
  const char byte = 0;
  if (write(pipe_ends[1], &byte, 1) != 1) End();
}

// A signal that whoever started the process has it ignore stays ignored.
void SetAction(void (*from)(int), void (*to)(int)) {
  for (const int number : kSignals) {
    struct sigaction action = {};
    if (sigaction(number, nullptr, &action) != 0 || action.sa_handler != from) continue;
    action = {};
    action.sa_handler = to;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigaction(number, &action, nullptr);
  }
}

}  // namespace

EndSignals::EndSignals(event_base* base, std::function<void()> last_words) : last_words_(std::move(last_words)) {
  if (pipe2(pipe_ends, O_CLOEXEC | O_NONBLOCK) != 0) return;
  event_.reset(event_new(base, pipe_ends[0], EV_READ, &EndSignals::OnSignal, this));
  event_add(event_.get(), nullptr);
  SetAction(SIG_DFL, OnEndSignal);
}

EndSignals::~EndSignals() {
  SetAction(OnEndSignal, SIG_DFL);
  event_.reset();
  for (const int end : pipe_ends) {
    if (end >= 0) close(end);
  }
}

void EndSignals::OnSignal(evutil_socket_t, short, void* self) {
  static_cast<EndSignals*>(self)->last_words_();
  End();
}

}  // namespace platform
