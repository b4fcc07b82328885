#include "change_guard_service.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <thread>
#include <variant>

#include "bus_account.h"
#include "console.h"
#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "relay/change_guard.h"

namespace parkctl {

namespace bs = businessserver;

namespace {

constexpr char kName[] = "business-server-config-guard";  // of an abstract socket: it vanishes with the process
constexpr char kReplies[] = "reply/";
constexpr std::chrono::milliseconds kTurn{200};
constexpr std::chrono::seconds kIdleEnd{20};
constexpr std::chrono::seconds kComesUp{5};
constexpr std::chrono::milliseconds kLook{100};
constexpr std::chrono::seconds kAnswerWait{2};

relay::Milliseconds Uptime() {
  timespec now = {};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<relay::Milliseconds>(now.tv_sec) * 1000 + static_cast<relay::Milliseconds>(now.tv_nsec) / 1000000;
}

std::string BootId() {
  std::ifstream file("/proc/sys/kernel/random/boot_id");
  std::string id;
  std::getline(file, id);
  return id;
}

struct Name {
  sockaddr_un address = {};
  socklen_t length = offsetof(sockaddr_un, sun_path) + sizeof kName;  // the first byte of an abstract name is a NUL

  Name() {
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path + 1, kName, sizeof kName - 1);
  }
  const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&address); }
};

int NamingSocket() { return socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0); }

// One in a network namespace, as there is one bus. The name is held until the process ends.
bool IsAlone() {
  const Name name;
  return bind(NamingSocket(), name.Get(), name.length) == 0;
}

class GuardService {
 public:
  explicit GuardService(const ConfigDeviceOptions& options)
      : options_(options), device_(options), store_(options.store_port), guard_(BootId(), relay::kSiteChange) {}

  int Run(bool once) {
    std::string text;
    while (store_.Read(relay::kDeviceChange, text) == Store::Found::kUnreachable) std::this_thread::sleep_for(kTurn);
    guard_.Restore(text, Uptime());
    while (!once || std::chrono::steady_clock::now() - last_busy_ < kIdleEnd) {
      if (!guard_.IsIdle()) last_busy_ = std::chrono::steady_clock::now();
      Listen();
      guard_.Turn(Uptime());
      DoWishes();
      // Nobody serves it meanwhile: a broker gives it up, or starts again, and what is sent next would be lost.
      if (!guard_.IsAtWork()) device_.Disconnect();
    }
    return kDone;
  }

 private:
  void Listen() {
    if (!bus_) {
      bus_.emplace(options_.device.bus_port, options_.device.role);
      if (!bus_->Connect() || !bus_->Listen({kChangeRequestMessage})) {
        bus_.reset();
        std::this_thread::sleep_for(kTurn);
        return;
      }
    }
    if (!bus_->Receive(kTurn, [this](const bus::Message& message) { Heard(message); })) bus_.reset();
  }

  void Heard(const bus::Message& message) {
    if (message.response_topic.compare(0, sizeof kReplies - 1, kReplies) != 0) return;
    Json::Value request;
    const bool is_request =
        bs::ParseJson(message.payload, request) && request.isObject() && request[bs::kType].isString();
    if (!is_request || !relay::ChangeGuard::Takes(request[bs::kType].asString())) {
      Answer(message, relay::ReplyText("", 400, "not a request", Json::Value()));
      return;
    }
    last_busy_ = std::chrono::steady_clock::now();  // who asks whether it is there has a change to make
    const uint64_t token = ++last_token_;
    asked_[token] = message;
    guard_.Request(token, request, Uptime());
  }

  void Answer(const bus::Message& request, const std::string& text) {
    bus::Message answer;
    answer.topic = request.response_topic;
    answer.payload = text;
    answer.correlation = request.correlation;
    if (bus_) bus_->Publish(answer);
  }

  void DoWishes() {
    for (auto wishes = guard_.Take(); !wishes.empty(); wishes = guard_.Take()) {
      for (const relay::ChangeGuard::Wish& wish : wishes) {
        std::visit([this](const auto& what) { Do(what); }, wish);
      }
    }
  }

  void Do(const relay::ChangeGuard::Ask& ask) {
    Json::Value request;
    bs::ParseJson(ask.text, request);
    for (const config::Part& part : config::Parts()) {
      if (part.reading_command == ask.type && ask.type == bs::kGetBt) {
        // The module's own word: before the first set_bt nothing is stored.
        const Reply reply = device_.AskDevice(ask.type);
        if (reply.Came()) {
          guard_.Answered(relay::ReplyText(ask.type, reply.state, reply.error_msg, reply.body), Uptime());
        }
      } else if (part.reading_command == ask.type) {
        const std::optional<Json::Value> value = device_.ReadDocument(part);
        if (value) guard_.Answered(relay::ReplyText(ask.type, 200, "All done", *value), Uptime());
      } else if (part.storing_command == ask.type) {
        const Reply reply = device_.Set(part, request[bs::kBody]);
        if (reply.Came()) {
          guard_.Answered(relay::ReplyText(ask.type, reply.state, reply.error_msg, Json::Value()), Uptime());
        } else {
          device_.Disconnect();  // what became of the connection shows with the next question
        }
      }
    }
  }
  void Do(const relay::ChangeGuard::Answer& answer) {
    Answer(asked_[answer.token], answer.text);
    asked_.erase(answer.token);
  }
  void Do(const relay::ChangeGuard::Store& store) {
    const bool done =
        store.text.empty() ? store_.Erase(relay::kDeviceChange) : store_.Write(relay::kDeviceChange, store.text);
    guard_.Stored(done, Uptime());
  }
  void Do(const relay::ChangeGuard::Look& look) {
    std::string text;
    const Store::Found found = store_.Read(*look.document, text);
    guard_.Looked(found == Store::Found::kUnreachable ? relay::Found::kUnreachable
                  : found == Store::Found::kYes       ? relay::Found::kYes
                                                      : relay::Found::kNo,
                  text, Uptime());
  }
  void Do(const relay::ChangeGuard::Say& say) { Note(say.text); }

  const ConfigDeviceOptions options_;
  ConfigDevice device_;
  const Store store_;
  relay::ChangeGuard guard_;
  std::optional<DeviceBus> bus_;
  std::chrono::steady_clock::time_point last_busy_ = std::chrono::steady_clock::now();
  uint64_t last_token_ = 0;
  std::map<uint64_t, bus::Message> asked_;
};

bool Answers(const ConfigDeviceOptions& options) {
  if (!ChangeGuardRuns()) return false;
  DeviceBus bus(options.device.bus_port, platform::kIntegratorRole);
  Json::Value request;
  request[bs::kType] = relay::kGetChange;
  std::string answer;
  return bus.Connect() &&
         bus.Ask(kChangeRequestMessage, bs::StyledText(request), kAnswerWait, answer) == Outcome::kDelivered;
}

// In the child. Of what it inherits it keeps nothing but its privileges.
[[noreturn]] void BecomeGuard(const ConfigDeviceOptions& options) {
  setsid();
  if (fork() != 0) _exit(0);  // nobody's child: whoever started it need not wait for it
  const int nowhere = open("/dev/null", O_RDWR);
  for (int fd = 0; fd <= 2; ++fd) dup2(nowhere, fd);
  close_range(3, ~0u, 0);
  const std::string bus = std::to_string(options.device.bus_port);
  const std::string store = std::to_string(options.store_port);
  execl("/proc/self/exe", "parkctl", "--bus-port", bus.c_str(), "--store-port", store.c_str(), "config", "guard",
        "--once", nullptr);
  _exit(127);
}

}  // namespace

bool ChangeGuardRuns() {
  const Name name;
  const int fd = NamingSocket();
  const bool runs = connect(fd, name.Get(), name.length) == 0;
  close(fd);
  return runs;
}

int RunChangeGuard(const ConfigDeviceOptions& options, bool once) {
  if (!IsAlone()) {
    Note("another guard is there already");
    return kRefused;
  }
  return GuardService(options).Run(once);
}

bool EnsureChangeGuard(const ConfigDeviceOptions& options) {
  if (Answers(options)) return true;
  const pid_t child = fork();
  if (child < 0) return false;
  if (child == 0) BecomeGuard(options);
  waitpid(child, nullptr, 0);
  const auto end = std::chrono::steady_clock::now() + kComesUp;
  while (std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(kLook);
    if (Answers(options)) return true;
  }
  return false;
}

}  // namespace parkctl
