// A connection that is made again whenever it is lost, on the loop of whoever owns it.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "connection.h"

namespace bus {

// Loop: Watch(descriptor, task, wants_write), Unwatch(descriptor), Every(period, task) and Cancel(timer).
template <class Loop>
class Kept {
 public:
  Kept(Loop& loop, Options options, Connection::Handlers handlers)
      : loop_(loop), options_(std::move(options)), handlers_(std::move(handlers)) {}
  ~Kept() {
    loop_.Cancel(upkeep_);
    Drop();
  }
  Kept(const Kept&) = delete;
  Kept& operator=(const Kept&) = delete;

  // Starts to connect and keeps connected from then on.
  void Start() {
    upkeep_ = loop_.Every(std::chrono::milliseconds(100), [this] {
      if (!connection_) {
        Connect();
      } else if (!connection_->Tick() || (!connection_->up() && Clock::now() - began_ > kAcceptLimit)) {
        Drop();
      }
    });
    Connect();
  }

  bool up() const { return connection_ && connection_->up(); }

  // Nothing while the broker is away: the message is then lost, as on the device.
  std::optional<int> Publish(const Message& message) {
    if (!up()) return std::nullopt;
    const std::optional<int> number = connection_->Publish(message);
    if (connection_->descriptor() < 0) Drop();  // at once: the number of its descriptor may be another's next
    return number;
  }
  std::optional<int> Subscribe(const std::vector<std::string>& filters, int qos = 0, bool own_messages = true) {
    return connection_ ? connection_->Subscribe(filters, qos, own_messages) : std::nullopt;
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::seconds kAcceptLimit{3};

  void Connect() {
    connection_ = std::make_unique<Connection>(options_, handlers_);
    began_ = Clock::now();
    if (!connection_->Begin()) {
      connection_.reset();
      return;
    }
    watched_ = connection_->descriptor();
    loop_.Watch(
        watched_,
        [this] {
          if (!connection_->Serve()) Drop();
        },
        [this] { return connection_->WantsWrite(); });
  }

  void Drop() {
    if (watched_ >= 0) loop_.Unwatch(watched_);
    watched_ = -1;
    connection_.reset();
  }

  Loop& loop_;
  const Options options_;
  const Connection::Handlers handlers_;
  std::unique_ptr<Connection> connection_;
  int watched_ = -1;
  Clock::time_point began_;
  uint64_t upkeep_ = 0;
};

}  // namespace bus
