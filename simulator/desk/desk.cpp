#include "desk/desk.h"

#include <unistd.h>

#include "plain_words.h"
#include "protocol/commands.h"
#include "protocol/names.h"
#include "serial_decoder.h"

namespace desk {
namespace {

namespace bs = businessserver;

constexpr Loop::Milliseconds kTick(5);
constexpr Loop::Milliseconds kQuestionPeriod(50);
constexpr Loop::Milliseconds kStartLimit(5000);
constexpr Loop::Milliseconds kBeaconPause(200);  // after its last command, its state is told

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

Desk::Desk(DevicePlan plan, std::unique_ptr<Loop> own_loop) : Desk(std::move(plan), *own_loop) {
  own_loop_ = std::move(own_loop);
}

Desk::Desk(DevicePlan plan, Loop& loop)
    : loop_(loop),
      device_(loop_, std::move(plan)),
      store_client_(device_.network()),
      beacon_(loop_, device_.beacon_line),
      serial_(loop_, device_.external_line, store_client_, journal_),
      bus_watch_(journal_,
                 [this] {
                   if (!ready_) journal_.Add(Source::kDesk, "the daemon answers", {{"daemon", "ready"}});
                   ready_ = true;
                 }),
      bus_(loop_, device_.network()),
      neighbours_(loop_, [this](const Neighbour& neighbour) {
        const bool sent = bus_.Publish(bs::kBusNetPush, PushDocument(neighbour));
        journal_.Add(Source::kNeighbour, NeighbourText(neighbour) + Delivered(sent));
      }) {
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
    if (device_.network() != nullptr || PortIsFree(port)) continue;
    problem = "port " + std::to_string(port) + " on 127.0.0.1 is taken, and the " + who +
              " needs it: is another desk, or the device's own " + who + ", running on this machine?";
    return false;
  }
  if (access(device_.plan().daemon.c_str(), X_OK) != 0) {
    problem = "there is no daemon at " + device_.plan().daemon + ": build it first";
    return false;
  }
  if (!device_.MakeFiles(problem)) return false;
  for (Process* process : device_.Programs()) WatchProcess(*process);
  if (!StartAround(device_.store, problem) || !StartAround(device_.broker, problem)) return false;
  device_.daemon.OnLine([this](const std::string& line) {
    daemon_log_.Add(Source::kLog, words::Printable(line), {{"line", line}});
  });
  timers_.push_back(loop_.Every(kTick, [this] { Tick(); }));
  timers_.push_back(loop_.Every(kQuestionPeriod, [this] { AskSignOfLife(); }));
  bus_.Start();
  if (!loop_.RunUntil([this] { return bus_.connected(); }, kStartLimit)) {
    problem = "the broker does not answer on port " + std::to_string(kBusPort);
    return false;
  }
  StartProcess(device_.daemon);
  return device_.daemon.running();
}

bool Desk::StartAround(Process& process, std::string& problem) {
  if (!device_.StartAndAwait(process, problem)) return false;
  NoteStart(process);
  return true;
}

void Desk::WatchProcess(Process& process) {
  process.OnExit([this, &process](const std::string& how) {
    if (&process == &device_.daemon || &process == &device_.broker) ready_ = false;
    if (&process == &device_.daemon) serial_.DaemonEnded();
    const std::string ended = how.empty() ? " is down" : " ended by itself " + how;
    journal_.Add(Source::kDesk, process.name() + ended, {{process.name(), "down"}});
  });
}

Process* Desk::FindProcess(const std::string& name) {
  for (Process* process : device_.Programs()) {
    if (process->name() == name) return process;
  }
  return nullptr;
}

void Desk::StartProcess(Process& process) {
  std::string problem;
  if (process.running()) return;
  if (process.Start(problem)) {
    NoteStart(process);
  } else {
    journal_.Add(Source::kDesk, problem);
  }
}

void Desk::NoteStart(const Process& process) {
  journal_.Add(Source::kDesk, process.name() + " is started, pid " + std::to_string(process.pid()),
               {{process.name(), "up"}});
}

void Desk::KillProcess(Process& process) { process.Kill(); }
void Desk::StopProcess(Process& process) { process.Stop(); }

void Desk::Tick() {
  if (!bus_.connected()) ready_ = false;
  LookAtLamp();
}

void Desk::LookAtLamp() {
  const uint32_t data = device_.board.LedData();
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
  if (ready_ || !device_.daemon.running() || !bus_.connected()) return;
  const std::string question = std::string("{\"") + bs::kType + "\":\"" + bs::kGetFrameStatus + "\"}";
  bus_.Request(bs::kBusRequestMessage, question, kSignOfLifeTopic, "alive");
}

}  // namespace desk
