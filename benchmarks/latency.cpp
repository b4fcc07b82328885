// Side by side, in interleaved rounds: the echo responder, the lean responder, the Python handler and the daemon in
// each way of logging.
#include <hiredis/hiredis.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>

#include "measurements.h"
#include "protocol/names.h"
#include "statistics.h"

namespace bench {

namespace bs = businessserver;

namespace {

constexpr char kEchoTopic[] = "bench/echo";
constexpr char kLeanTopic[] = "bench/lean";
constexpr char kPythonTopic[] = "bench/python";
constexpr char kOneWayTopic[] = "bench/one_way";
constexpr char kStoreAlone[] = "one question of the store";
constexpr double kEventLimit = 5;
constexpr double kBurstLimit = 60;
constexpr size_t kBurstRequestSize = 500;

// One thing that is asked: of a responder, or of the daemon in one way of logging.
struct Question {
  std::string name;
  const char* topic;
  std::string payload;
  const char* expected;  // in each answer
  bool is_daemon;
  bool in_bursts;
};

const std::vector<Question>& Questions() {
  static const std::vector<Question> questions = {
      {"echo in C", kEchoTopic, kReadingRequest, "get_ttyio_cfg", false, true},
      {"lean C++ reading", kLeanTopic, kReadingRequest, "baudrate", false, true},
      {"Python reading", kPythonTopic, kReadingRequest, "baudrate", false, true},
      {"daemon, live state", bs::kBusRequestMessage, kLiveRequest, "totle", true, true},
      {"daemon, reading", bs::kBusRequestMessage, kReadingRequest, "baudrate", true, true},
      {"daemon, storing", bs::kBusRequestMessage, kStoringRequest, "All done", true, false},
  };
  return questions;
}

struct Burst {
  std::vector<double> rates;  // answers a second
  unsigned long lost = 0, repeated = 0;
};

class Latency {
 public:
  Latency(Device& device, const Effort& effort)
      : device_(device), effort_(effort), real_time_(device.SetRealTime(true)) {
    const std::string bus = std::to_string(desk::kBusPort), store = std::to_string(desk::kStorePort);
    const auto start = [&](const char* topic, const std::vector<std::string>& command) {
      responders_[topic] = &device_.StartHelper(command);
    };
    start(kEchoTopic, {device_.Program("bench_echo"), bus, kEchoTopic});
    start(kLeanTopic, {device_.Program("bench_lean"), bus, store, kLeanTopic});
    start(kPythonTopic, {"/usr/bin/python3", device_.Source("reading_handler.py"), bus, store, kPythonTopic});
    device_.StartHelper({device_.Program("bench_subscriber"), bus, kOneWayTopic, device_.OneWayFile()});
    for (const char* topic : {kEchoTopic, kLeanTopic, kPythonTopic}) device_.Await(topic, kEventLimit);
    store_.reset(redisConnect("127.0.0.1", desk::kStorePort));
    if (!store_ || store_->err != 0) throw std::runtime_error("the store cannot be reached");
    device_.bus().Subscribe(bs::kBusSimulatorTrigger);
    device_.bus().Subscribe(bs::kBusBroadcastMessage);
  }

  ~Latency() {
    device_.bus().Unsubscribe(bs::kBusSimulatorTrigger);
    device_.bus().Unsubscribe(bs::kBusBroadcastMessage);
    device_.SetRealTime(false);
  }
  Latency(const Latency&) = delete;
  Latency& operator=(const Latency&) = delete;

  // A first burst makes broker and client as large as they will be.
  void WarmUp() {
    Burst unused;
    RunBurst(Questions()[0], unused);
  }

  void RunBlock(int block, const LogMode& mode) {
    device_.StartDaemon(mode);
    for (const Question& question : Questions()) AskRound(question, effort_.requests);  // warms up
    for (int round = 0; round < effort_.rounds; ++round) {
      for (const Question& question : Questions()) {
        const Process& responder = question.is_daemon ? device_.daemon() : *responders_[question.topic];
        const double cpu = responder.CpuSeconds();
        requests_[Key(mode, question)].AddRound(AskRound(question, effort_.requests));
        processor_[Key(mode, question)].AddRound({(responder.CpuSeconds() - cpu) / effort_.requests});
      }
      requests_[Key(mode, kStoreAlone)].AddRound(StoreRound(effort_.requests));
    }
    for (int round = 0; round < effort_.rounds; ++round) ResultRound(mode);
    if (block < effort_.burst_blocks) {
      for (const Question& question : Questions()) {
        if (question.in_bursts) RunBurst(question, bursts_[Key(mode, question)]);
      }
    }
  }

  void Fill(Report& report);

 private:
  // Responders are measured beside each way of logging: their rounds are kept apart, to be compared round by round.
  static std::string Key(const LogMode& mode, const Question& question) { return Key(mode, question.name); }
  static std::string Key(const LogMode& mode, const std::string& name) { return name + ", " + mode.name; }

  std::vector<double> AskRound(const Question& question, int count) {
    std::vector<double> round;
    for (int i = 0; i < count; ++i) {
      const double begin = Now();
      const std::string answer = device_.bus().Ask(question.topic, question.payload, kEventLimit);
      round.push_back(Now() - begin);
      if (answer.find(question.expected) == std::string::npos) {
        throw std::runtime_error(question.name + " answers " + answer);
      }
    }
    return round;
  }

  // What a reading must wait for, whoever answers it: a process asks the store and sleeps until the answer is there.
  std::vector<double> StoreRound(int count) {
    std::vector<double> round;
    for (int i = 0; i < count; ++i) {
      const double begin = Now();
      auto* const reply = redisCommand(store_.get(), "HGET kvdb %b", kReadingKey, sizeof kReadingKey);
      round.push_back(Now() - begin);
      if (reply == nullptr) throw std::runtime_error("the store does not answer");
      freeReplyObject(reply);
    }
    return round;
  }

  // Seconds from the publication to what it sets off, watched without sleeping.
  double Time(const char* topic, std::string_view payload, const std::function<bool()>& seen) {
    const double begin = Now();
    device_.bus().Publish(topic, payload);
    while (!seen()) {
      sched_yield();
      if (Now() - begin > kEventLimit) throw std::runtime_error(std::string("nothing came of ") + topic);
    }
    return Now() - begin;
  }

  double TimeResult(const std::function<bool()>& seen) {
    occupied_ = !occupied_;
    const bs::LX_Parking_Result_Param record = ResultRecord(occupied_);
    republished_ = counted_ = false;
    device_.bus().OnMessage([&](const Message& message) {
      republished_ = republished_ || message.topic == bs::kBusSimulatorTrigger;
      counted_ = counted_ || message.payload.find("frame_changed") != std::string_view::npos;
    });
    const double seconds = Time(bs::kAvsSimulatorTrigger, Bytes(record), seen);
    // The republication is the last that a result sets off.
    device_.bus().ServeUntil([&] { return republished_ && counted_; }, kEventLimit);
    device_.lines().ReadExternal();
    return seconds;
  }

  void ResultRound(const LogMode& mode) {
    device_.lines().TakeExternal();
    const bs::LX_Parking_Result_Param record = ResultRecord(false);
    std::map<std::string, std::vector<double>> round;
    for (int i = 0; i < effort_.results; ++i) {
      const uint32_t count = device_.OneWayCount();
      round["one way"].push_back(Time(kOneWayTopic, Bytes(record), [&] { return device_.OneWayCount() != count; }));
      const uint32_t shown = device_.LedRegister();
      round["register store"].push_back(TimeResult([&] { return device_.LedRegister() != shown; }));
      round["first serial byte"].push_back(TimeResult([&] { return device_.lines().ReadExternal() > 0; }));
      round["broadcast of the counts"].push_back(TimeResult([&] {
        device_.bus().Serve(0);
        return counted_;
      }));
    }
    device_.lines().GiveBackExternal();
    for (const auto& [name, samples] : round) results_[Key(mode, name)].AddRound(samples);
  }

  void RunBurst(const Question& question, Burst& burst) {
    std::string payload = question.payload;
    payload.insert(1, std::string(kBurstRequestSize - payload.size(), ' '));  // still the same document
    std::vector<unsigned char> answers(static_cast<size_t>(effort_.burst));
    size_t answered = 0, repeated = 0;
    device_.bus().OnMessage([&](const Message& message) {
      if (message.tag < kFirstBurstTag || message.tag - kFirstBurstTag >= answers.size()) return;
      unsigned char& seen = answers[message.tag - kFirstBurstTag];
      seen == 0 ? ++answered : ++repeated;
      seen = 1;
    });
    const double begin = Now();
    for (size_t i = 0; i < answers.size(); ++i) {
      device_.bus().Request(question.topic, payload, kFirstBurstTag + static_cast<uint32_t>(i));
      if (i % 16 == 0) device_.bus().Serve(0);
    }
    device_.bus().ServeUntil([&] { return answered == answers.size(); }, kBurstLimit);
    const double seconds = Now() - begin;
    device_.bus().Ask(question.topic, question.payload, kEventLimit);  // what comes twice has come before this
    burst.rates.push_back(static_cast<double>(answered) / seconds);
    burst.lost += answers.size() - answered;
    burst.repeated += repeated;
  }

  void FillRequests(Report& report);
  void FillResults(Report& report);
  void FillBursts(Report& report);

  static constexpr uint32_t kFirstBurstTag = 0x40000000;

  Device& device_;
  const Effort effort_;
  const bool real_time_;
  std::unique_ptr<redisContext, void (*)(redisContext*)> store_{nullptr, redisFree};
  bool occupied_ = false;
  bool republished_ = false, counted_ = false;
  std::map<std::string, const Process*> responders_;
  std::map<std::string, Series> requests_, processor_, results_;
  std::map<std::string, Burst> bursts_;
};

std::string Microseconds(double seconds) { return Number(seconds * 1e6, 0); }

void Latency::FillRequests(Report& report) {
  Table table{
      "Request to reply", {"who answers", "median us", "p99 us", "of the echo", "of Python", "processor us"}, {}};
  for (const LogMode& mode : LogModes()) {
    const Series& echo = requests_[Key(mode, "echo in C")];
    const Series& python = requests_[Key(mode, "Python reading")];
    for (const Question& question : Questions()) {
      const Series& series = requests_[Key(mode, question)];
      table.rows.push_back({(question.is_daemon ? question.name : question.name + ", beside") + ", " + mode.name,
                            Microseconds(Median(series.samples)), Microseconds(Quantile(series.samples, 0.99)),
                            Number(Ratio(series, echo)), Number(Ratio(series, python)),
                            Number(Median(processor_[Key(mode, question)].samples) * 1e6, 1)});
    }
    const Series& store = requests_[Key(mode, kStoreAlone)];
    table.rows.push_back({std::string(kStoreAlone) + ", beside, " + mode.name, Microseconds(Median(store.samples)),
                          Microseconds(Quantile(store.samples, 0.99)), Number(Ratio(store, echo)),
                          Number(Ratio(store, python)), ""});
    const Series& reading = requests_[Key(mode, "daemon, reading")];
    const std::string at = std::string(", ") + mode.name;
    report.Add(
        Goal{"live state / echo" + at, Ratio(requests_[Key(mode, "daemon, live state")], echo), 1.10, false, ""});
    report.Add(Goal{"reading / echo" + at, Ratio(reading, echo), 1.30, false, ""});
    report.Add(Goal{"Python / reading" + at, Ratio(python, reading), 2.1, true, ""});
  }
  report.Add(std::move(table));
}

void Latency::FillResults(Report& report) {
  Table table{"From a result's publication", {"until", "median us", "p99 us", "of one way"}, {}};
  for (const LogMode& mode : LogModes()) {
    const Series& one_way = results_[Key(mode, "one way")];
    for (const char* name : {"one way", "register store", "first serial byte", "broadcast of the counts"}) {
      const Series& series = results_[Key(mode, name)];
      table.rows.push_back({Key(mode, name), Microseconds(Median(series.samples)),
                            Microseconds(Quantile(series.samples, 0.99)), Number(Ratio(series, one_way))});
    }
    report.Add(Goal{Key(mode, "register store / one way"), Ratio(results_[Key(mode, "register store")], one_way), 1.3,
                    false, ""});
  }
  report.Add(std::move(table));
}

void Latency::FillBursts(Report& report) {
  Table table{"Burst of " + std::to_string(effort_.burst) + " requests of 500 bytes",
              {"who answers", "answers/s", "of the echo", "lost", "repeated"},
              {}};
  for (const LogMode& mode : LogModes()) {
    const Burst& echo = bursts_[Key(mode, "echo in C")];
    for (const Question& question : Questions()) {
      if (!question.in_bursts) continue;
      const Burst& burst = bursts_[Key(mode, question)];
      const double share = Ratio({{}, burst.rates}, {{}, echo.rates});
      table.rows.push_back({(question.is_daemon ? question.name : question.name + ", beside") + ", " + mode.name,
                            Number(Median(burst.rates), 0), Number(share), std::to_string(burst.lost),
                            std::to_string(burst.repeated)});
      if (question.is_daemon) report.Add(Goal{"burst, " + Key(mode, question), share, 0.85, true, ""});
    }
  }
  report.Add(std::move(table));
}

void Latency::Fill(Report& report) {
  FillRequests(report);
  FillResults(report);
  FillBursts(report);
}

}  // namespace

void MeasureLatency(Device& device, const Effort& effort, Report& report) {
  Latency latency(device, effort);
  latency.WarmUp();
  for (int block = 0; block < effort.blocks; ++block) {
    for (const LogMode& mode : LogModes()) latency.RunBlock(block, mode);
  }
  latency.Fill(report);
  device.StopDaemon();
}

}  // namespace bench
