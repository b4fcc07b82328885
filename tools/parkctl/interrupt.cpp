#include "interrupt.h"

#include <sys/time.h>

#include <csignal>
#include <cstdio>
#include <ctime>

namespace parkctl {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void OnInterrupt(int) { interrupted = 1; }

}  // namespace

void EndOnInterrupt() {
  struct sigaction action = {};
  action.sa_handler = OnInterrupt;  // without SA_RESTART: waits end at once
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

bool Interrupted() { return interrupted != 0; }

std::string Now() {
  timeval now = {};
  gettimeofday(&now, nullptr);
  tm parts = {};
  localtime_r(&now.tv_sec, &parts);
  char text[64];
  const size_t length = strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  snprintf(text + length, sizeof text - length, ".%03d", static_cast<int>(now.tv_usec / 1000));
  return text;
}

}  // namespace parkctl
