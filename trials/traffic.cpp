#include "traffic.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "protocol/parking_result.h"

namespace trials {

namespace bs = businessserver;

namespace {

constexpr Milliseconds kGivenUp(100);  // a set without an answer by then is not waited for
constexpr Milliseconds kSlowly(20);

int breaches = 0;

}  // namespace

void Breach(const std::string& what) {
  ++breaches;
  printf("BREACH: %s\n", what.c_str());
  fflush(stdout);
}

int Breaches() { return breaches; }

std::string TrialDocument::Body(int number) const {
  const std::string filling(static_cast<size_t>(number * 37 % 1200), static_cast<char>('a' + number % 26));
  std::string text = content;
  std::replace(text.begin(), text.end(), '#', static_cast<char>('2' + number % 6));
  return "{\"n\":" + std::to_string(number) + ",\"filling\":\"" + filling + "\"," + text + "}";
}

std::string TrialDocument::Text(int number) const {
  Json::Value body;
  bs::ParseJson(Body(number), body);
  return bs::StyledText(body);
}

Traffic::Traffic(Rig& rig)
    : rig_(rig),
      documents_{
          {bs::kSetParkingReserveCfg, &bs::kParkingReserve, "\"reservecfg\":{\"reservenum\":#}"},
          {bs::kSetEncCfg, &bs::kEncCfg, "\"level\":#,\"data\":\"cTdXbTRadDJQ\",\"data_len\":9"},
          {bs::kSetTtyioCfg, &bs::kDeviceTtyio,
           "\"ttyionum\":2,\"baudrate\":115200,\"checkbit\":0,\"databit\":8,\"stopbit\":1"},
          {bs::kSetDevPos, &bs::kDevPos, "\"pos\":#"},
          {bs::kSetRs485proCfg, &bs::kRs485pro, "\"pro_cfg\":[{\"header\":\"BB8#\"},{\"license\":1},{\"end\":\"33\"}]"},
          {bs::kSetParkingColorCfg, &bs::kBusLedColor,
           "\"parkingledcolorcfg\":{\"parkingfreeledcolor\":#,\"parkingoccupyledcolor\":#}"},
      } {
  rig_.loop.Every(Milliseconds(1), [this] { Tick(); });
}

void Traffic::Go(Pace pace) {
  pace_ = pace;
  if (pace == Pace::kNone) RunFor(50);
}

void Traffic::Settle() {
  Go(Pace::kNone);
  const auto done = std::make_shared<int>(-1);  // 1 once it is acknowledged
  const auto end = Loop::Clock::now() + kReturnLimit;
  while (*done != 1 && Loop::Clock::now() < end) {
    *done = -1;
    Set(kColours, [done](bool good) { *done = good ? 1 : 0; });
    rig_.loop.RunUntil([&] { return *done >= 0; }, Milliseconds(1000));
  }
  if (*done != 1) Breach("the colours cannot be set");
}

int Traffic::AwaitReturn(const std::string& after) {
  const auto start = Loop::Clock::now();
  const int before = begun_;
  if (!rig_.loop.RunUntil([&] { return newest_acknowledged_ > before; }, kReturnLimit)) {
    Breach(after + ": no set is acknowledged any more");
  }
  return static_cast<int>(std::chrono::duration_cast<Milliseconds>(Loop::Clock::now() - start).count());
}

bool Traffic::Set(size_t document, std::function<void(bool)> done) {
  const int number = documents_[document].sent + 1;
  const auto answered = [this, document, number, done = std::move(done)](int state, const std::string&) {
    const bool good = state == bs::kAllDone.state;
    ++(good ? acknowledged : refused);
    TrialDocument& set = documents_[document];
    if (good) set.acknowledged = std::max(set.acknowledged, number);
    done(good);
  };
  if (!rig_.Send(documents_[document].command, documents_[document].Body(number), answered)) return false;
  documents_[document].sent = number;
  return true;
}

void Traffic::CheckDocuments(const std::string& after) {
  desk::StoreClient store;  // one that has not been cut off by what happened
  for (const TrialDocument& document : documents_) {
    if (document.acknowledged == 0) continue;
    const std::string name = after + ": " + document.stored->key;
    std::string text;
    Json::Value stored;
    if (!rig_.loop.RunUntil([&] { return store.Get(document.stored->key, text); }, kReturnLimit)) {
      Breach(name + " cannot be read");
      continue;
    }
    const int number = bs::ParseJson(text, stored) ? stored["n"].asInt() : -1;
    if (number < 0 || text != document.Text(number)) Breach(name + " is none of the texts that were sent: " + text);
    if (number < document.acknowledged) {
      Breach(name + " has number " + std::to_string(number) + ", acknowledged was " +
             std::to_string(document.acknowledged));
    }
  }
}

void Traffic::CheckApplied(const std::string& after) {
  desk::StoreClient store;
  std::string reply, text;
  Json::Value shown, stored;
  rig_.Await(bs::kGetDeviceFrameStatus, "0", kReturnLimit, &reply);
  rig_.loop.RunUntil([&] { return store.Get(bs::kBusLedColor.key, text); }, kReturnLimit);
  bs::ParseJson(reply, shown);
  bs::ParseJson(text, stored);
  if (shown[bs::kBody][bs::kLedColor] != stored[bs::kParkingledcolorcfg][bs::kParkingfreeledcolor]) {
    Breach(after + ": the daemon shows " + bs::StyledText(shown) + " and the store says " + text);
  }
}

void Traffic::CheckResults(const std::string& after) {
  const uint64_t before = rig_.heard[bs::kBusSimulatorTrigger];
  const auto came_back = [&] { return rig_.heard[bs::kBusSimulatorTrigger] > before; };
  const auto end = Loop::Clock::now() + kReturnLimit;
  while (!came_back() && Loop::Clock::now() < end) {
    if (rig_.Publish(bs::kAvsSimulatorTrigger, Result())) ++results;
    rig_.loop.RunUntil(came_back, Milliseconds(200));
  }
  if (!came_back()) Breach(after + ": results do not come back");
}

void Traffic::Tick() {
  ++ticks_;
  const auto now = Loop::Clock::now();
  if (pace_ == Pace::kNone || (pace_ == Pace::kSlow && now - sent_at_ < kSlowly)) return;
  if ((pace_ == Pace::kSlow || ticks_ % 4 == 0) && rig_.Publish(bs::kAvsSimulatorTrigger, Result())) ++results;
  if (!waiting_ || now - sent_at_ >= kGivenUp) SetNext();
}

// Each document in its turn.
void Traffic::SetNext() {
  const int turn = begun_ + 1;
  waiting_ = Set(static_cast<size_t>(begun_) % documents_.size(), [this, turn](bool good) {
    waiting_ = waiting_ && turn != begun_;
    if (good) newest_acknowledged_ = std::max(newest_acknowledged_, turn);
    if (good && pace_ == Pace::kFull && !waiting_) SetNext();
  });
  if (!waiting_) return;
  begun_ = turn;
  sent_at_ = Loop::Clock::now();
}

std::string Traffic::Result() const {
  bs::LX_Parking_Result_Param record = {};
  record.spaces[0].valid = record.spaces[0].second_flag = 1;
  record.spaces[0].space_status = ticks_ / 4 % 2;
  return std::string(reinterpret_cast<const char*>(&record), sizeof record);
}

}  // namespace trials
