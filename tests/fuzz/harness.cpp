#include "harness.h"

#include <array>
#include <boost/shared_ptr.hpp>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <tuple>

#include "once.h"
#include "server/business_server.h"

namespace businessserver {

// All that a server holds beside what its store, board and timers hold.
struct BusinessServerTestAccess {
  static auto Members(BusinessServer& server) {
    return std::tie(server.watchdog_, server.led_, server.beacon_, server.serial_output_, server.encryption_,
                    server.own_status_, server.last_sent_, server.store_answered_, *server.kvdb_log_,
                    server.rs485_pro_->settings_, server.rs485_pro_->slots_);
  }
  static std::array<Json::Value*, 3> Documents(BusinessServer& server) {
    return {&server.last_control_event_, &server.led_colour_cfg_, &server.led_colour_broadcast_};
  }
  static void RenewCounts(BusinessServer& server) {
    server.net_push_->ClearLists();
    server.PushOwnStatus();
  }
  static void FreeFrameBuilder(BusinessServer& server) {
    delete server.rs485_pro_;
  }  // else kept until the process ends
};

}  // namespace businessserver

namespace fuzz {
namespace {

using Access = BusinessServerTestAccess;

enum : int { kBeaconLine = TTY_DEV_UART1, kExternalLine = TTY_DEV_UART2 };
constexpr std::string_view kModuleIdentity =
    "MTD:UID-0x464143544F52592D4944454E54495459\r\nMTD:MAJ-0x0001\r\nMTD:MIN-0x0002\r\nMTD:MEA--55\r\n";
constexpr time_t kWallClockAtStart = 1767225600;

template <typename... Member>
std::tuple<std::decay_t<Member>...> Copied(const std::tuple<Member&...>& members) {
  return members;
}

// Whether everything that leaves the server is noted, and the digest of it.
bool noting = false;
size_t digest = 0;
void Note(std::string_view bytes) { digest = digest * 31 + std::hash<std::string_view>()(bytes); }

// A server in its event loop. It waits there, on a thread of its own, until it is ended; meanwhile its timers and
// callbacks are called from outside, as the loop would call them.
class RunningServer {
 public:
  RunningServer() {
    Fake().on_poll = [this] {
      std::unique_lock lock(mutex_);
      polling_ = true;
      changed_.notify_all();
      changed_.wait(lock, [this] { return ending_; });
      throw std::runtime_error("the end");
    };
    thread_ = std::thread([this] {
      server_->Start();
      MUST_HOLD(ending_);  // else the start let an exception out
    });
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return polling_; });
  }
  ~RunningServer() {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
      changed_.notify_all();
    }
    thread_.join();
    Access::FreeFrameBuilder(*server_);
  }
  RunningServer(const RunningServer&) = delete;
  RunningServer& operator=(const RunningServer&) = delete;

  BusinessServer& operator*() { return *server_; }

 private:
  const boost::shared_ptr<BusinessServer> server_{new BusinessServer};
  std::mutex mutex_;
  std::condition_variable changed_;
  bool polling_ = false, ending_ = false;
  std::thread thread_;
};

void ClearOutputs() {
  Fake().sent.clear();
  Fake().replies.clear();
  Fake().shell.clear();
  Fake().log.clear();
  Fake().store_writes = 0;
}

struct Block {
  const PhysicalBlock& block;
  std::vector<uint32_t> registers{};

  uint32_t* Now() const { return static_cast<uint32_t*>(TheBoard().Registers(block.base, block.length)); }
};

// A server with the state that it had after its start.
class LastingServer {
 public:
  LastingServer() {
    for (Block& block : blocks_) block.registers.assign(block.Now(), block.Now() + block.block.length / 4);
  }

  void PutBack() {
    Fake().now_ms = 0;
    Fake().on_sleep = nullptr;
    PutBackStore();
    for (size_t i = 0; i < documents_.size(); ++i) {
      Json::Value& document = *Access::Documents(*server_)[i];
      if (document != documents_[i]) document = documents_[i];
    }
    Access::Members(*server_) = members_;
    Rs485ProBuild::check_license_ = 0;
    Access::RenewCounts(*server_);
    for (const int number : {kBeaconLine, kExternalLine}) {
      TheBoard().line(number).Reset();
      TheBoard().line(number).settings = settings_[number - 1];
    }
    for (const Block& block : blocks_) std::copy(block.registers.begin(), block.registers.end(), block.Now());
    FakePlatform::Rearm(armings_);
    ClearOutputs();
  }

 private:
  void PutBackStore() {
    auto& store = Fake().store;
    for (auto held = store.begin(); held != store.end();) {
      held = store_.count(held->first) == 0 ? store.erase(held) : std::next(held);
    }
    for (const auto& [key, value] : store_) {
      std::string& held = store[key];
      if (held != value) held = value;
    }
  }

  RunningServer server_;
  const std::map<std::string, std::string> store_ = Fake().store;
  const decltype(Copied(Access::Members(*server_))) members_ = Copied(Access::Members(*server_));
  const std::array<Json::Value, 3> documents_ = {*Access::Documents(*server_)[0], *Access::Documents (*server_)[1],
                                                 *Access::Documents (*server_)[2]};
  const std::vector<FakePlatform::Arming> armings_ = FakePlatform::Armings();
  const termios settings_[2] = {TheBoard().line(kBeaconLine).settings, TheBoard().line(kExternalLine).settings};
  Block blocks_[2] = {{kLedGpioBlock}, {kPinMuxBlock}};
};

std::unique_ptr<LastingServer>& TheServer() {
  static auto* const server = new std::unique_ptr<LastingServer>;  // ends with the process
  return *server;
}

void Restart() {
  TheServer().reset();
  ResetWorld();
  TheServer() = std::make_unique<LastingServer>();
}

// What came of the script: the digest of all that left, and of what is stored.
size_t DigestOf(const std::function<void()>& script) {
  noting = true;
  digest = 0;
  TheServer()->PutBack();
  TheBoard().module_answers = true;
  script();
  CheckPublished();
  for (const auto& [key, value] : Fake().store) Note(key), Note(value);
  noting = false;
  return digest;
}

}  // namespace

void ResetWorld() {
  ResetFake();
  Fake().keeps_trace = false;
  Fake().least_level = INT_MAX;
  TheBoard().module_answers = true;
  for (const int number : {kBeaconLine, kExternalLine}) TheBoard().line(number).Reset();
  Rs485ProBuild::check_license_ = 0;
}

Board::Board() {
  MakeCurrent(this);
  line(kBeaconLine).far_end = [this](std::string_view command, memory_board::Micros when) {
    if (!module_answers) return;
    line(kBeaconLine).Arrive(command == "DTM:INF\r\n" ? kModuleIdentity : "MTD:OK\r\n", when);
  };
  line(kExternalLine).far_end = [](std::string_view bytes, memory_board::Micros) {
    if (noting) Note(bytes);
  };
}

void Board::PassUntil(memory_board::Micros when) {
  const uint64_t now_ms = (when + memory_board::kMillisecond - 1) / memory_board::kMillisecond;
  Fake().now_ms = std::max(Fake().now_ms, now_ms);
}

time_t Board::WallClock() const { return kWallClockAtStart + static_cast<time_t>(Fake().now_ms / 1000); }

Board& TheBoard() {
  static Board board;
  return board;
}

void WithServer(std::string_view input, const std::function<void()>& script) {
  constexpr size_t kTwice = 1024;  // one of so many
  if (TheServer() == nullptr) Restart();
  if (std::hash<std::string_view>()(input) % kTwice == 0) {
    const size_t put_back = DigestOf(script);
    Restart();
    MUST_HOLD(put_back == DigestOf(script));
    return;
  }
  TheServer()->PutBack();
  TheBoard().module_answers = true;
  script();
  CheckPublished();
}

void WithNewServer(const std::function<void()>& script) {
  const boost::shared_ptr<BusinessServer> server(new BusinessServer);
  bool ran = false;
  Fake().on_poll = [&] {
    script();
    CheckPublished();
    ran = true;
    throw std::runtime_error("the end");
  };
  server->Start();
  MUST_HOLD(ran);  // else the start, or the script, let an exception out
  Access::FreeFrameBuilder(*server);
}

Json::Value MustParse(const std::string& text) {
  Json::Value document;
  MUST_HOLD(ParseJson(text, document));
  return document;
}

void MustBeJson(const std::string& text) {
  static std::vector<size_t> passed;
  OnceFor(text, passed, [&] { MustParse(text); });
}

static void MustBeReply(const std::string& text) {
  static std::vector<size_t> passed;
  OnceFor(text, passed, [&] {
    const int state = MustParse(text)[kState].asInt();
    MUST_HOLD(state == 200 || (state >= 401 && state <= 405));
  });
}

void CheckPublished() {
  for (const auto& message : Fake().sent) {
    if (noting) Note(message.type), Note(message.data);
    if (message.type == kBusSimulatorTrigger) {
      MUST_HOLD(message.data.size() == sizeof(LX_Parking_Result_Param));
    } else {
      MUST_HOLD(message.type == kBusBroadcastMessage || message.type == kHttpRequestMessageRoot);
      MustBeJson(message.data);
    }
  }
  Fake().sent.clear();
}

void Deliver(const std::string& type_text, std::string_view payload) {
  const std::unique_ptr<char[]> block(new char[sizeof(_TagDpMsg) + payload.size() + 1]());
  auto* const msg = reinterpret_cast<_TagDpMsg*>(block.get());
  msg->type_name_len = static_cast<uint8_t>(type_text.copy(msg->type_name, sizeof msg->type_name - 1));
  const std::string_view type = msg->type_name;
  msg->data_size = static_cast<uint32_t>(payload.size());
  memcpy(msg + 1, payload.data(), payload.size());
  Fake().replies.clear();
  Fake().on_message(nullptr, msg, Fake().user);
  MUST_HOLD(Fake().replies.size() == (type == kBusRequestMessage || type == kBusExtRequestMessage ? 1 : 0));
  for (const auto& reply : Fake().replies) {
    if (noting) Note(reply.data);
    if (reply.data.size() == sizeof(LX_Parking_Result_Param)) continue;  // the latest result
    MUST_HOLD(reply.type == type);
    MustBeReply(reply.data);
  }
  CheckPublished();
}

void Request(const std::string& command, std::string_view body, const char* path) {
  Deliver(path, "{\"type\":\"" + command + "\",\"body\":" + std::string(body) + "}");
}

}  // namespace fuzz
