// The site's broker in memory: topics with what was kept for them, connections with their subscriptions and wills, and
// the network between it and each device. A message takes a fixed time on its way, so that none overtakes another.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "relay/outputs.h"
#include "years/chance.h"
#include "years/schedule.h"

namespace years {

struct HubDelivery {
  std::string topic;
  std::string payload;
  bool kept = false;
  std::string response_topic;
  std::string correlation;
};

class Hub {
 public:
  // What a connection's owner hears. Calls come from the schedule.
  struct Client {
    std::function<void()> up;
    std::function<void()> down;
    std::function<void()> subscribed;
    std::function<void(const HubDelivery&)> heard;
  };

  Hub(Schedule& schedule, Digest& digest) : schedule_(schedule), digest_(digest) {}

  // ---- the relays' side; a cable is a device's number ----
  void Connect(unsigned cable, const relay::ConnectHub& connect, Client client);
  void Disconnect(unsigned cable);  // in order
  void Abort(unsigned cable);       // the process is gone: its will is published
  void Subscribe(unsigned cable, const std::vector<std::string>& filters);
  void Unsubscribe(unsigned cable, const std::vector<std::string>& filters);
  void Publish(unsigned cable, const relay::PublishHub& message);

  // ---- the planner's and the faults' side ----
  void PublishKept(const std::string& topic, const std::string& payload);
  void Send(const HubDelivery& message);
  void Kill(Micros lasts, bool forgets);
  void CutCable(unsigned cable, Micros until);
  // How many answers have come to a topic since the last call.
  unsigned TakeAnswers(const std::string& topic);

 private:
  struct Connection {
    uint64_t number = 0;  // 0: none
    bool accepted = false;
    Client client;
    std::vector<std::string> filters;
    std::string will_topic, will;
  };
  struct KeptMessage {
    std::string payload;
    Micros expires = 0;  // 0: never
  };

  bool Reaches(unsigned cable) const;
  // Runs what arrives at the far end of a cable, when it arrives, unless the connection is lost by then.
  void Carry(unsigned cable, std::function<void(Connection&)> what);
  void Accept(const std::string& topic, const std::string& payload, bool retained, uint32_t expiry_s,
              const HubDelivery& properties);
  void Deliver(unsigned cable, HubDelivery message);
  void Lose(unsigned cable, bool publishes_will, Micros noticed_after);

  Schedule& schedule_;
  Digest& digest_;
  std::map<unsigned, Connection> connections_;
  std::map<unsigned, Micros> cut_until_;
  std::map<std::string, KeptMessage> kept_;
  std::map<std::string, unsigned> answers_;  // by topic below reply/
  Micros down_until_ = 0;
  uint64_t connections_made_ = 0;
};

}  // namespace years
