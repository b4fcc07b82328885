#include "watch.h"

#include <iostream>
#include <thread>

#include "bus_account.h"
#include "console.h"
#include "device_bus.h"
#include "interrupt.h"
#include "message_words.h"
#include "stored_text.h"

namespace parkctl {

namespace {

constexpr std::chrono::milliseconds kListening{1000};
constexpr std::chrono::milliseconds kReconnection{500};

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

  bool Ended() const { return Interrupted() || !std::cout || (options_.count > 0 && printed_ >= options_.count); }

 private:
  const WatchOptions options_;
  const Json::Value field_list_;
  uint64_t printed_ = 0;
};

// One connection, for as long as it holds.
void WatchConnection(DeviceBus& bus, Printer& printer) {
  while (!printer.Ended()) {
    if (!bus.Receive(kListening, [&](const bus::Message& message) { printer.Print(message); })) return;
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
    std::this_thread::sleep_for(kReconnection);
  }
}

}  // namespace parkctl
