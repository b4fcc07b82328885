#include "watch.h"

#include <sys/time.h>

#include <csignal>
#include <ctime>
#include <iostream>
#include <thread>

#include "bus_account.h"
#include "console.h"
#include "device_bus.h"
#include "message_words.h"
#include "stored_text.h"

namespace parkctl {

namespace {

constexpr std::chrono::milliseconds kPass{1000};
constexpr std::chrono::milliseconds kRetry{500};

volatile std::sig_atomic_t interrupted = 0;

void OnInterrupt(int) { interrupted = 1; }

void EndOnInterrupt() {
  struct sigaction action = {};
  action.sa_handler = OnInterrupt;  // without SA_RESTART: waits end at once
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

// "2026-03-01 12:34:56.789", local time; from offset 11 on it is the time of day.
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

class Printer {
 public:
  explicit Printer(const WatchOptions& options)
      : options_(options), field_list_(CurrentFieldList(options.store_port)) {}

  void Print(const bus::Message& message) {
    if (Ended()) return;
    ++printed_;
    const std::string now = Now();
    if (options_.json) {
      Json::Value line = MessageJson(message.topic, message.payload, field_list_);
      line["time"] = now;
      std::cout << OneLineText(line) << std::endl;
      return;
    }
    char type[64];
    snprintf(type, sizeof type, "%-24s", message.topic.c_str());
    std::cout << Painted(Paint::kFaint, now.substr(11)) << "  " << Painted(MessagePaint(message.topic), type) << "  "
              << MessageWords(message.topic, message.payload, field_list_) << std::endl;
  }

  bool Ended() const { return interrupted != 0 || !std::cout || (options_.count > 0 && printed_ >= options_.count); }

 private:
  const WatchOptions options_;
  const Json::Value field_list_;
  uint64_t printed_ = 0;
};

// One connection, for as long as it holds.
void WatchConnection(DeviceBus& bus, Printer& printer) {
  while (!printer.Ended()) {
    if (!bus.Receive(kPass, [&](const bus::Message& message) { printer.Print(message); })) return;
  }
}

}  // namespace

int Watch(const WatchOptions& options) {
  EndOnInterrupt();
  Printer printer(options);
  bool waiting = false;
  while (true) {
    DeviceBus bus(options.bus_port, platform::kIntegratorRole);
    const bool connected = bus.Connect() && bus.Listen(WatchedTypes());
    if (connected) {
      Note(waiting ? "the bus is back" : "watching; Ctrl-C ends");
      waiting = false;
      WatchConnection(bus, printer);
    }
    if (printer.Ended()) return kDone;
    if (!waiting) {
      if (connected) Note("the bus went away");
      bus.Explain(Outcome::kNoBroker, "");
      Note("waiting for it");
    }
    waiting = true;
    std::this_thread::sleep_for(kRetry);
  }
}

}  // namespace parkctl
