// The relay between the device's bus and the hub: hands what happens to its decisions (relay.h) and does what they
// want, on the platform's event loop.
#pragma once

#include <memory>
#include <string>

#include "bus_requests.h"
#include "dp_client.h"
#include "evt_timer.h"
#include "hub_client.h"
#include "relay/relay.h"

namespace relay {

class Program final : private lxconn::HubClient::Listener {
 public:
  // The hub's password is the first line of the file, which is read at each connection; an empty path is none.
  Program(Start start, std::string password_path);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  // Until EndSoon, or the end of the loop. Returns the process's exit status.
  int Run();

  // For signal handlers: Run returns within about a second.
  static void EndSoon();

 private:
  static void OnBusMessage(DpPollHandle*, const _TagDpMsg* message, void* self);
  static void OnBusStatus(DpPollHandle* handle, unsigned status, void* self);
  static int OnTurn(int, short, const void* self);
  static int OnWatchdog(int, short, const void* self);
  static void OnAnswer(uint64_t id, std::string_view answer, void* self);

  void OnHubUp() override;
  void OnHubDown() override;
  void OnHubSubscribed() override;
  void OnHubMessage(const lxconn::HubDelivery& message) override;
  void OnHubServed() override { Work(); }

  void ListenToBus();
  void Work();  // does what is wanted, and sets the timer for the next turn
  void Do(const ConnectHub& connect);
  void Do(const DisconnectHub&);
  void Do(const SubscribeHub& subscribe);
  void Do(const UnsubscribeHub& unsubscribe);
  void Do(const PublishHub& publish);
  void Do(const PushCounts& push);
  void Do(const Broadcast& broadcast);
  void Do(const AllowRequests& allow);
  void Do(const AskDevice& ask);
  void Do(const ReadStore& read);
  void Do(const WriteStore& write);
  void Do(const Say& say);

  const std::string password_path_;
  Relay relay_;
  DpPollHandle* bus_ = nullptr;
  std::unique_ptr<lxconn::HubClient> hub_;
  std::unique_ptr<lxconn::BusRequester> requester_;
  lxconn::EVT_TIMER turn_;
  lxconn::EVT_TIMER watchdog_;
  uint32_t watchdog_key_ = 0;
};

}  // namespace relay
