// A connection for programs that ask, wait and go on: each call returns when it is done or its time is over.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "connection.h"

namespace bus {

class Caller {
 public:
  // kNobodyListens: the broker took the message, and no one subscribes to its topic.
  enum class Outcome { kDelivered, kNobodyListens, kRefused, kSilent, kNoBroker };

  explicit Caller(Options options);

  bool Connect();

  // Waits until the broker has said what became of the message.
  Outcome Publish(Message message) { return PublishAll({std::move(message)}).front(); }

  // The same for many, one outcome for each; told(n) is called when n are done.
  std::vector<Outcome> PublishAll(std::vector<Message> messages, const std::function<void(size_t)>& told = {});

  // Sends the message, and waits for the answer to its response topic. Whoever answers may be busy: the wait is the
  // caller's.
  Outcome Request(Message message, std::chrono::milliseconds wait, std::string& answer);

  // False, and why, when the broker refuses them all or is gone.
  bool Listen(const std::vector<std::string>& filters, int qos = 0);

  // Hands over what arrives within the wait (returns earlier once something did). False: the connection is lost.
  bool Receive(std::chrono::milliseconds wait, const std::function<void(const Message&)>& handler);

  // What the broker keeps under these filters: received until nothing more came for a while. False as Receive and
  // Listen.
  bool Collect(const std::vector<std::string>& filters, const std::function<void(const Message&)>& handler);

  const Address& address() const { return address_; }
  const std::string& user() const { return user_; }        // empty: nobody
  bool refused() const { return connection_.refused(); }   // no connection, because the broker wants an account
  std::string problem() const;                             // why there is no connection
  const std::string& refusal() const { return refusal_; }  // the broker's reason for the message it refused last

 private:
  using Clock = std::chrono::steady_clock;

  Connection::Handlers Handlers();
  bool Run(std::chrono::milliseconds wait, const std::function<bool()>& done);
  Outcome OutcomeOf(int reason);
  Outcome Failure() const { return connection_.up() ? Outcome::kSilent : Outcome::kNoBroker; }

  const Address address_;
  const std::string user_;
  std::string problem_;
  std::string refusal_;
  std::map<int, int> confirmed_;             // the broker's reason by the message's number
  std::optional<std::vector<int>> granted_;  // of the last subscription
  std::optional<std::string> answer_;        // of the request under way
  std::string response_topic_, correlation_;
  std::vector<Message> received_;
  Clock::time_point ticked_;
  Connection connection_;
};

std::string RandomText();  // 16 hexadecimal digits

}  // namespace bus
