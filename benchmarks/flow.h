// Events sent to the daemon with a bounded number under way, each known to be done by what it publishes.
#pragma once

#include <stdexcept>
#include <string>

#include "device.h"

namespace bench {

// Sends event number 0, 1, ... and waits until each has led to one publication on done_topic that holds done_text.
// Throws std::runtime_error when they stop coming.
template <typename Send>
void RunEvents(Device& device, long long count, const char* done_topic, const char* done_text, Send send) {
  constexpr long long kUnderWay = 64;
  constexpr double kLimit = 60;
  long long done = 0;
  device.bus().Subscribe(done_topic);
  device.bus().OnMessage([&](const Message& message) {
    if (message.topic == done_topic && message.payload.find(done_text) != std::string_view::npos) ++done;
  });
  for (long long sent = 0; sent < count; ++sent) {
    send(static_cast<unsigned>(sent));
    if (!device.bus().ServeUntil([&] { return sent - done < kUnderWay; }, kLimit)) break;
  }
  const bool all = device.bus().ServeUntil([&] { return done >= count; }, kLimit);
  device.bus().Unsubscribe(done_topic);
  if (!all) throw std::runtime_error(std::string("no more of ") + done_text + " on " + done_topic);
}

// Results, free and occupied in turn.
void RunResults(Device& device, long long count);

}  // namespace bench
