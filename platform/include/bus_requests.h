// A second way onto the device's message bus, for a process that sends requests to this device: it has an account of
// its own there, so that an owner can refuse it without refusing the rest.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

namespace lxconn {

class EVT_LOOP;

class BusRequester {
 public:
  // The answer to a request; the view ends with the call.
  using AnswerCallback = void (*)(uint64_t id, std::string_view answer, void* user);

  // Host and port are the bus's (dp_client.h). Connects now and, while there is no connection, once a second.
  BusRequester(EVT_LOOP* loop, const char* host, uint16_t port, const char* account, AnswerCallback on_answer,
               void* user);
  ~BusRequester();
  BusRequester(const BusRequester&) = delete;
  BusRequester& operator=(const BusRequester&) = delete;

  // Sends a request of this type. False when it cannot be sent now; an answer is not promised.
  bool Ask(const char* type_name, uint64_t id, std::string_view request);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace lxconn
