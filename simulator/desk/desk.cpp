#include "desk/desk.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "plain_words.h"
#include "protocol/commands.h"
#include "protocol/names.h"
#include "serial_decoder.h"

namespace desk {
namespace {

namespace bs = businessserver;

constexpr int kBusPort = 5291;
constexpr int kStorePort = 5299;
constexpr Loop::Milliseconds kTick(5);
constexpr Loop::Milliseconds kQuestionPeriod(50);
constexpr Loop::Milliseconds kStartLimit(5000);
constexpr Loop::Milliseconds kBeaconPause(200);  // after its last command, its state is told

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

bool PortIsFree(int port) {
  const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int yes = 1;
  setsockopt(probe, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  const sockaddr_in address = Loopback(port);
  const bool free = bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(probe);
  return free;
}

bool PortAnswers(int port) {
  const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = Loopback(port);
  const bool answers = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(probe);
  return answers;
}

// A broker started by root gives its rights away, and with them the tie that ends it together with the desk. On a desk
// it keeps them.
bool WriteBrokerConfiguration(const std::string& from, const std::string& to) {
  std::ifstream shipped(from);
  std::ofstream own(to);
  for (std::string line; std::getline(shipped, line);) {
    if (line.compare(0, 5, "user ") != 0) own << line << '\n';
  }
  if (geteuid() == 0) own << "user root\n";
  return shipped.eof() && own.good();
}

bool WriteHarmlessKillall(const std::string& directory) {
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  const std::string program = directory + "/killall";
  std::ofstream(program) << "#!/bin/sh\necho \"not on a desk: killall $*\" >&2\n";
  return chmod(program.c_str(), 0755) == 0;
}

// "a | b" for the lines a and b.
std::string LinesText(const std::string& lines) {
  std::string text;
  for (size_t at = 0; at < lines.size();) {
    const size_t end = std::min(lines.find("\r\n", at), lines.size());
    text += (text.empty() ? "" : " | ") + words::Printable(lines.substr(at, end - at));
    at = end + 2;
  }
  return text;
}

}  // namespace

Desk::Desk(DeskPlan plan)
    : plan_(std::move(plan)),
      beacon_line_(loop_),
      external_line_(loop_),
      beacon_(loop_, beacon_line_),
      serial_(loop_, external_line_, store_client_, journal_),
      bus_watch_(journal_,
                 [this] {
                   if (!ready_) journal_.Add(Source::kDesk, "the daemon answers", {{"daemon", "ready"}});
                   ready_ = true;
                 }),
      bus_(loop_),
      neighbours_(loop_,
                  [this](const Neighbour& neighbour) {
                    const bool sent = bus_.Publish(bs::kBusNetPush, PushDocument(neighbour));
                    journal_.Add(Source::kNeighbour, NeighbourText(neighbour) + Delivered(sent));
                  }),
      broker_(loop_, "broker"),
      store_(loop_, "store"),
      daemon_(loop_, "daemon") {
  bus_.OnMessage([this](const BusMessage& message) {
    LookAtLamp();  // the lamp changes before the daemon says so
    bus_watch_.Handle(message);
  });
  beacon_.OnCommand([this](const std::string& command, const std::string& answer) {
    const std::string meaning = words::DescribeBeaconLine(command);
    const std::string said = !beacon_.plugged() ? "(unplugged)" : answer.empty() ? "(silence)" : LinesText(answer);
    journal_.Add(Source::kBeacon, words::Printable(command) + (meaning.empty() ? "" : "  " + meaning) + "  -> " + said,
                 {{"command", command}, {"answer", answer}});
    loop_.Cancel(beacon_pause_);
    beacon_pause_ = loop_.After(kBeaconPause, [this] {
      journal_.Add(Source::kBeacon, "now: " + IdentityText(beacon_.state()) + "  " + SettingsText(beacon_.state()));
    });
  });
}

Desk::~Desk() {
  loop_.Cancel(beacon_pause_);
  for (const uint64_t timer : timers_) loop_.Cancel(timer);
  Stop();
}

bool Desk::Start(std::string& problem) {
  for (const auto& [port, who] : {std::pair(kBusPort, "broker"), std::pair(kStorePort, "store")}) {
    if (PortIsFree(port)) continue;
    problem = "port " + std::to_string(port) + " on 127.0.0.1 is taken, and the " + who +
              " needs it: is another desk, or the device's own " + who + ", running on this machine?";
    return false;
  }
  if (access(plan_.daemon.c_str(), X_OK) != 0) {
    problem = "there is no daemon at " + plan_.daemon + ": build it first";
    return false;
  }
  if (!MakeFiles(problem) || !StartAround(problem)) return false;
  timers_.push_back(loop_.Every(kTick, [this] { Tick(); }));
  timers_.push_back(loop_.Every(kQuestionPeriod, [this] { AskSignOfLife(); }));
  bus_.Start();
  if (!loop_.RunUntil([this] { return bus_.connected(); }, kStartLimit)) {
    problem = "the broker does not answer on port " + std::to_string(kBusPort);
    return false;
  }
  StartProcess(daemon_);
  return daemon_.running();
}

void Desk::Stop() {
  for (Process* process : {&daemon_, &broker_, &store_}) process->Stop();
}

bool Desk::MakeFiles(std::string& problem) {
  namespace fs = std::filesystem;
  std::error_code error;
  fs::create_directories(plan_.directory, error);
  plan_.directory = fs::absolute(plan_.directory, error).string();
  for (const char* leftover : {"dev", "log"}) fs::remove_all(plan_.directory + "/" + leftover, error);
  if (!plan_.keep_store) fs::remove_all(plan_.directory + "/store", error);
  fs::create_directories(plan_.directory + "/store", error);
  if (error) {
    problem = "cannot make " + plan_.directory + ": " + error.message();
    return false;
  }
  if (!WriteHarmlessKillall(plan_.directory + "/bin")) {
    problem = "cannot write to " + plan_.directory + "/bin";
    return false;
  }
  plan_.daemon = fs::absolute(plan_.daemon, error).string();
  plan_.packaging = fs::absolute(plan_.packaging, error).string();
  ConfigureProcesses();
  if (!WriteBrokerConfiguration(plan_.packaging + "/mosquitto.conf", plan_.directory + "/mosquitto.conf")) {
    problem = "cannot copy " + plan_.packaging + "/mosquitto.conf to " + plan_.directory;
    return false;
  }
  return board_.Create(plan_.directory, problem) && beacon_line_.Open(plan_.directory + "/" + kBeaconLine, problem) &&
         external_line_.Open(plan_.directory + "/" + kExternalLine, problem);
}

void Desk::ConfigureProcesses() {
  broker_.Configure({"mosquitto", "-c", plan_.directory + "/mosquitto.conf"}, plan_.directory);
  store_.Configure({"redis-server", plan_.packaging + "/redis.conf", "--dir", plan_.directory + "/store"},
                   plan_.directory);
  // After a day without results the daemon ends its sibling programs by name: here, nobody's.
  daemon_.Configure({"/usr/bin/env", "PATH=" + plan_.directory + "/bin:/usr/bin:/bin", plan_.daemon}, plan_.directory);
  for (Process* process : {&broker_, &store_, &daemon_}) WatchProcess(*process);
  daemon_.OnLine([this](const std::string& line) {
    daemon_log_.Add(Source::kLog, words::Printable(line), {{"line", line}});
  });
}

void Desk::WatchProcess(Process& process) {
  process.OnExit([this, &process](const std::string& how) {
    if (&process == &daemon_ || &process == &broker_) ready_ = false;
    if (&process == &daemon_) serial_.DaemonEnded();
    const std::string ended = how.empty() ? " is down" : " ended by itself " + how;
    journal_.Add(Source::kDesk, process.name() + ended, {{process.name(), "down"}});
  });
}

bool Desk::StartAround(std::string& problem) {
  return StartAndAwait(store_, kStorePort, problem) && StartAndAwait(broker_, kBusPort, problem);
}

bool Desk::StartAndAwait(Process& process, int port, std::string& problem) {
  std::string last_line;
  process.OnLine([&last_line](const std::string& line) { last_line = line; });
  StartProcess(process);
  const bool up = loop_.RunUntil(
      [&] {
        process.Check();
        return !process.running() || PortAnswers(port);
      },
      kStartLimit);
  process.OnLine({});
  if (up && process.running()) return true;
  problem = "the " + process.name() + " did not start: " + (last_line.empty() ? "no answer" : last_line);
  return false;
}

Process* Desk::FindProcess(const std::string& name) {
  for (Process* process : {&broker_, &store_, &daemon_}) {
    if (process->name() == name) return process;
  }
  return nullptr;
}

void Desk::StartProcess(Process& process) {
  std::string problem;
  if (process.running()) return;
  if (process.Start(problem)) {
    journal_.Add(Source::kDesk, process.name() + " is started, pid " + std::to_string(process.pid()),
                 {{process.name(), "up"}});
  } else {
    journal_.Add(Source::kDesk, problem);
  }
}

void Desk::KillProcess(Process& process) { process.Kill(); }
void Desk::StopProcess(Process& process) { process.Stop(); }

void Desk::Tick() {
  for (Process* process : {&broker_, &store_, &daemon_}) process->Check();
  if (!bus_.connected()) ready_ = false;
  LookAtLamp();
}

void Desk::LookAtLamp() {
  const uint32_t data = board_.LedData();
  if (data == led_data_) return;
  led_data_ = data;
  const int color = LedColor(data);
  journal_.Add(Source::kLed,
               words::LedRegisterText(data) + (color < 0 ? "" : ", colour " + std::to_string(color)) +
                   "  (data register " + std::to_string(data) + ")",
               {{"lines", LedLines(data)}, {"colour", std::to_string(color)}});
}

// A question that changes nothing, asked until it is answered.
void Desk::AskSignOfLife() {
  if (ready_ || !daemon_.running() || !bus_.connected()) return;
  const std::string question = std::string("{\"") + bs::kType + "\":\"" + bs::kGetFrameStatus + "\"}";
  bus_.Request(bs::kBusRequestMessage, question, kSignOfLifeTopic, "alive");
}

}  // namespace desk
