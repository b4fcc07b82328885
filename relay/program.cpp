#include "relay/program.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <utility>

#include "kvdb.h"
#include "lx_logging.h"
#include "protocol/names.h"
#include "watchdog.h"

namespace relay {

namespace {

constexpr char kLogSource[] = "relay/relay";
constexpr char kLocalHost[] = "127.0.0.1";
constexpr uint16_t kBusPort = 5291;
constexpr uint16_t kStorePort = 5299;
constexpr char kAccount[] = "relay";
constexpr char kRequestsAccount[] = "relay_requests";
constexpr unsigned kWatchDogPeriodMs = 4000;
constexpr int kPollMs = 10;

constexpr const char* kListened[] = {bs::kBusBroadcastMessage, bs::kHttpRequestMessageRoot,
                                     bs::kHttpBroadcastMessageRoot};

volatile std::sig_atomic_t ends = 0;

Milliseconds Now() {
  const auto since_boot = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<Milliseconds>(std::chrono::duration_cast<std::chrono::milliseconds>(since_boot).count());
}

std::string FirstLine(const std::string& path) {
  std::string line;
  if (!path.empty()) std::getline(std::ifstream(path), line);
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

// Neither counts a NUL.
std::string_view KeyOf(StoreKey key) { return key == StoreKey::kChange ? kSiteChange.key : "relay_value"; }

}  // namespace

Program::Program(Start start, std::string password_path)
    : password_path_(std::move(password_path)), relay_(std::move(start), Now()) {}

Program::~Program() {
  requester_.reset();
  hub_.reset();
  DpClient_Stop();
  Kvdb_Stop();
}

void Program::EndSoon() { ends = 1; }

int Program::Run() {
  watchdog_key_ = RegisterWatchDogKey("relay", 3, 20);
  Kvdb_Start(kLocalHost, kStorePort);
  DpClient_Init(kLocalHost, kBusPort);
  DpClient_UseAccount(kAccount);
  DpClient_Start(0);
  bus_ = DpClient_CreatePollHandle(OnBusMessage, this, OnBusStatus, 0, 0);
  lxconn::EVT_LOOP* const loop = DpClient_GetEvtLoopFromPoll(bus_);
  lxconn::HubClient::Listener* const listener = this;
  hub_ = std::make_unique<lxconn::HubClient>(loop, listener);
  turn_.Init(loop, OnTurn, this);
  watchdog_.Init(loop, OnWatchdog, this);
  watchdog_.Start(0, kWatchDogPeriodMs);
  ListenToBus();
  Work();
  while (ends == 0) DpClient_PollDpMessage(bus_, kPollMs);
  relay_.Stop();
  Work();
  return 0;
}

void Program::ListenToBus() {
  if (DpClient_HdlAddListenMessage(bus_, kListened, std::size(kListened)) == 1) relay_.BusUp(Now());
}

void Program::OnBusStatus(DpPollHandle* handle, unsigned status, void* self) {
  if (status != kDpStatusDisconnected) return;
  auto* const program = static_cast<Program*>(self);
  program->relay_.BusDown(Now());
  if (DpClient_HdlReConnect(handle) == 1) program->ListenToBus();
  program->Work();
}

void Program::OnBusMessage(DpPollHandle*, const _TagDpMsg* message, void* self) {
  auto* const program = static_cast<Program*>(self);
  program->relay_.BusHeard({message->type_name, message->type_name_len}, {DpMsgData(message), message->data_size},
                           Now());
  program->Work();
}

int Program::OnTurn(int, short, const void* self) {
  auto* const program = static_cast<Program*>(const_cast<void*>(self));
  program->relay_.Turn(Now());
  program->Work();
  return 0;
}

int Program::OnWatchdog(int, short, const void* self) {
  FeedDog(static_cast<const Program*>(self)->watchdog_key_);
  return 0;
}

// The requester may be wanted no more: that is done from the loop.
void Program::OnAnswer(uint64_t id, std::string_view answer, void* self) {
  auto* const program = static_cast<Program*>(self);
  program->relay_.DeviceAnswered(id, answer, Now());
  program->turn_.Start(0, 0);
}

void Program::OnHubUp() { relay_.HubUp(Now()); }

void Program::OnHubSubscribed() { relay_.HubSubscribed(Now()); }

void Program::OnHubDown() {
  relay_.HubDown(Now());
  Work();
}

void Program::OnHubMessage(const lxconn::HubDelivery& message) {
  relay_.HubHeard({message.topic, message.payload, message.kept, message.response_topic, message.correlation}, Now());
}

void Program::Work() {
  // Doing one thing may want the next: what the store holds is known at once.
  for (auto wanted = relay_.Take(); !wanted.empty(); wanted = relay_.Take()) {
    for (const Output& output : wanted) std::visit([this](const auto& what) { Do(what); }, output);
  }
  const Milliseconds now = Now();
  const Milliseconds next = relay_.NextTurn();
  constexpr Milliseconds kLongest = 60000;
  turn_.Start(static_cast<unsigned>(next > now ? std::min(next - now, kLongest) : 0), 0);
}

void Program::Do(const ConnectHub& connect) {
  const Membership& to = connect.membership;
  lxconn::HubAddress address;
  address.host = to.host;
  address.port = to.port;
  address.tls = to.tls;
  address.ca = to.ca;
  address.client_id = connect.client_id;
  address.password = FirstLine(password_path_);
  address.user = to.user.empty() && !address.password.empty() ? to.device : to.user;
  address.will_topic = connect.will_topic;
  address.will = connect.will;
  hub_->Connect(address);
}

void Program::Do(const DisconnectHub&) { hub_->Disconnect(); }
void Program::Do(const SubscribeHub& subscribe) { hub_->Subscribe(subscribe.topics); }
void Program::Do(const UnsubscribeHub& unsubscribe) { hub_->Unsubscribe(unsubscribe.topics); }

void Program::Do(const PublishHub& publish) {
  lxconn::HubPublication publication;
  publication.topic = publish.topic;
  publication.payload = publish.payload;
  publication.retained = publish.retained;
  publication.expiry_s = publish.expiry_s;
  if (publish.correlation) publication.correlation = *publish.correlation;
  hub_->Publish(publication);
}

void Program::Do(const PushCounts& push) {
  DpClient_SendDpMessage(bs::kBusNetPush, 0, push.text.data(), static_cast<uint32_t>(push.text.size()));
}

void Program::Do(const Broadcast& broadcast) {
  DpClient_SendDpMessage(bs::kHttpBroadcastMessageRoot, 0, broadcast.text.data(),
                         static_cast<uint32_t>(broadcast.text.size()));
}

void Program::Do(const AllowRequests& allow) {
  requester_.reset();
  if (!allow.on) return;
  requester_ = std::make_unique<lxconn::BusRequester>(DpClient_GetEvtLoopFromPoll(bus_), kLocalHost, kBusPort,
                                                      kRequestsAccount, OnAnswer, this);
}

void Program::Do(const AskDevice& ask) {
  if (requester_) requester_->Ask(bs::kBusRequestMessage, ask.id, ask.text);
}

void Program::Do(const ReadStore& read) {
  const std::string_view key =
      read.document != nullptr ? std::string_view(read.document->key, read.document->key_length) : KeyOf(read.key);
  std::string text;
  const int result = Kvdb_GetKey(
      key.data(), static_cast<uint16_t>(key.size()),
      [](const char*, int, const char* value, int size, void* to) {
        static_cast<std::string*>(to)->assign(value, static_cast<size_t>(size));
      },
      &text);
  const Found found = result > 0 ? Found::kYes : result == 0 ? Found::kNo : Found::kUnreachable;
  relay_.StoreRead(read.key, found, text, Now());
}

void Program::Do(const WriteStore& write) {
  const std::string_view key = KeyOf(write.key);
  const auto length = static_cast<uint16_t>(key.size());
  const int result = write.text.empty()
                         ? Kvdb_DeleteKey(key.data(), length)
                         : Kvdb_SetKey(key.data(), length, write.text.data(), static_cast<uint32_t>(write.text.size()));
  relay_.StoreWritten(write.key, result > 0, Now());
}

void Program::Do(const Say& say) { lxlogging::CLxLogStream(say.level, kLogSource, __LINE__, 0) << say.text; }

}  // namespace relay
