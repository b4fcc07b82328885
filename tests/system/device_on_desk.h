// The whole device on a desk, fresh for each test: real binary, broker, store and pseudo-terminals, and a client that
// asks and listens. And what a person types: a command line, its status and its output.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <deque>
#include <map>
#include <utility>
#include <vector>

#include "contract_watch.h"
#include "desk/desk.h"
#include "programs.h"

class DeviceOnDesk : public testing::Test {
 protected:
  using Milliseconds = desk::Loop::Milliseconds;

  explicit DeviceOnDesk(std::vector<std::string> daemon_options = {})
      : desk_({directory_, BINARY_DIRECTORY "/business_server", SOURCE_DIRECTORY "/packaging", false,
               std::move(daemon_options), BINARY_DIRECTORY "/park_relay"}),
        client_(desk_.loop()),
        contract_(desk_.loop()) {
    std::string problem;
    EXPECT_TRUE(desk_.Start(problem)) << problem;
    client_.OnMessage([this](const desk::BusMessage& message) { heard_.push_back(message); });
    client_.Start();
    contract_.Start();
    EXPECT_TRUE(desk_.loop().RunUntil([&] { return desk_.ready() && client_.connected() && contract_.connected(); },
                                      Milliseconds(10000)));
  }

  void TearDown() override { contract_.LookIntoStore(desk_.store_client()); }

  // What was heard before an action is no consequence of it.
  void Forget() { heard_.clear(); }

  // The oldest message of a type that was not taken yet; waits for one. Empty for none.
  std::string Hear(const std::string& type) {
    std::string payload;
    desk_.loop().RunUntil(
        [&] {
          const auto found = std::find_if(heard_.begin(), heard_.end(),
                                          [&](const desk::BusMessage& message) { return message.topic == type; });
          if (found == heard_.end()) return false;
          payload = found->payload;
          heard_.erase(found);
          return true;
        },
        Milliseconds(3000));
    return payload;
  }

  // The reply as it came, empty for none.
  std::string Ask(const std::string& message_type, const std::string& request) {
    Forget();
    client_.Request(message_type, request, kReplyTopic, "one");
    return Hear(kReplyTopic);
  }

  // Waits for an event with this fact, from next_event_ on.
  bool Happens(desk::Source source, const char* fact, const std::string& wanted, int wait_ms = 3000) {
    return desk_.loop().RunUntil(
        [&] {
          const auto& events = desk_.journal().events();
          return std::any_of(events.begin(), events.end(), [&](const desk::Event& event) {
            const std::string* value = event.source == source ? desk::FindFact(event.facts, fact) : nullptr;
            return event.number >= next_event_ && value != nullptr && *value == wanted;
          });
        },
        Milliseconds(wait_ms));
  }

  // Runs a command line, with this build's programs at hand, while the desk goes on.
  Outcome Run(const std::string& command_line) {
    Forget();
    Outcome outcome;
    FILE* const pipe = popen(
        ("cd " + directory_ + "; export TZ=UTC HOME=$PWD PATH=" BINARY_DIRECTORY ":$PATH; exec 2>&1; " + command_line)
            .c_str(),
        "r");
    bool ended = false;
    desk_.loop().Watch(fileno(pipe), [&] {
      char part[4096];
      const ssize_t size = read(fileno(pipe), part, sizeof part);
      if (size > 0) outcome.output.append(part, static_cast<size_t>(size));
      ended = size <= 0;
    });
    desk_.loop().RunUntil([&] { return ended; }, Milliseconds(60000));
    desk_.loop().Unwatch(fileno(pipe));
    const int status = pclose(pipe);
    if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
    return outcome;
  }

  const TemporaryDirectory temporary_;
  const std::string directory_ = temporary_.path;
  static constexpr char kReplyTopic[] = "reply/tests";
  desk::Desk desk_;
  desk::BusClient client_;
  ContractWatch contract_;
  std::deque<desk::BusMessage> heard_;
  uint64_t next_event_ = 0;
};
