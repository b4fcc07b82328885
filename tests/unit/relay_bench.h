// A relay on a bench: what happens to it is typed in, what it wants is read as lines of text, and the clock is turned
// by hand.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "protocol/names.h"
#include "relay/relay.h"

namespace relay {

class RelayBench : public testing::Test {
 protected:
  static constexpr char kDocument[] = R"({"site": "garage", "device": "A", "broker": "mqtt://hub"})";
  static constexpr char kPlanTopic[] = "park/garage/plan/A";
  static constexpr char kHealthTopic[] = "park/garage/health/A";

  // ---- what happens ----
  // Time passes, in the steps that the relay asked for.
  void Advance(Milliseconds duration) {
    const Milliseconds end = now_ + duration;
    while (relay_->NextTurn() <= end) {
      ASSERT_GT(relay_->NextTurn(), now_ - 1) << "it would turn for ever";
      const bool again = relay_->NextTurn() == now_;
      now_ = std::max(now_, relay_->NextTurn());
      relay_->Turn(now_);
      Collect();
      ASSERT_FALSE(again && relay_->NextTurn() <= now_) << "it would turn for ever";
    }
    now_ = end;
  }
  void Store(const std::string& text, Found found = Found::kYes) {
    store_ = {found, text};
    relay_->BusHeard(bs::kHttpBroadcastMessageRoot, R"({"type": "changed"})", now_);
    Collect();
  }
  void BusUp() { relay_->BusUp(now_), Collect(); }
  void HubUp() { relay_->HubUp(now_), Collect(); }
  void HubDown() { relay_->HubDown(now_), Collect(); }
  void HubUpAgain() {
    HubDown();
    Advance(3000);
    HubUp();
  }
  void Subscribed() { relay_->HubSubscribed(now_), Collect(); }
  void Device(const char* type, const std::string& text) { relay_->BusHeard(type, text, now_), Collect(); }
  void Answer(uint64_t id, const std::string& text) { relay_->DeviceAnswered(id, text, now_), Collect(); }

  // The daemon's broadcast; pushed is what it holds of each direction, "ip:tn/fn ip:tn/fn".
  void Frame(int totle, int free, const std::string& pushed = "") {
    std::string entries;
    for (size_t at = 0; at < pushed.size();) {
      int ip = 0, tn = 0, fn = 0;
      sscanf(pushed.c_str() + at, "%d:%d/%d", &ip, &tn, &fn);
      entries += std::string(entries.empty() ? "" : ", ") + "{\"ip\": " + std::to_string(ip) +
                 ", \"tn\": " + std::to_string(tn) + ", \"fn\": " + std::to_string(fn) + "}";
      at = std::min(pushed.find(' ', at), pushed.size() - 1) + 1;
    }
    Device(bs::kBusBroadcastMessage, R"({"type": "frame_changed", "body": {"totle": )" + std::to_string(totle) +
                                         ", \"free\": " + std::to_string(free) +
                                         ", \"cm_dev\": " + (entries.empty() ? "null" : "[" + entries + "]") + "}}");
  }
  void Hub(const std::string& topic, const std::string& payload, bool kept = false) {
    relay_->HubHeard({topic, payload, kept, "", std::nullopt}, now_);
    Collect();
  }
  void Kept(const std::string& topic, const std::string& payload) { Hub(topic, payload, true); }
  void Counts(const std::string& where, int spaces, int free) {
    Hub("park/garage/counts/" + where, CountsText({static_cast<uint32_t>(spaces), static_cast<uint32_t>(free)}));
  }
  void Plan(const std::string& text) { Hub(kPlanTopic, text); }

  // A device of the site, connected; its subscriptions are answered and quiet.
  void Settle() {
    for (int i = 0; i < 8; ++i) Subscribed();
    Advance(200);
  }
  void Connect(const std::string& plan = "") {
    BusUp();
    HubUp();
    if (!plan.empty()) Plan(plan);
    Settle();
    Advance(1000);
    Forget();
  }

  // ---- what it wants ----
  void Collect() {
    for (auto outputs = relay_->Take(); !outputs.empty(); outputs = relay_->Take()) {
      for (const Output& output : outputs) {
        std::visit([this](const auto& what) { Note(what); }, output);
      }
    }
  }
  std::vector<std::string> Of(const std::string& kind) const {
    std::vector<std::string> lines;
    for (const std::string& line : wanted_) {
      if (line.compare(0, kind.size(), kind) == 0) lines.push_back(line);
    }
    return lines;
  }
  std::string Last(const std::string& kind) const {
    const auto lines = Of(kind);
    return lines.empty() ? "" : lines.back();
  }
  // The pushes as "left 12/3", in order.
  std::string Pushed() {
    std::string text;
    for (const std::string& line : Of("push ")) text += (text.empty() ? "" : ", ") + line.substr(5);
    Forget();
    return text;
  }
  std::string PushedIn(Milliseconds duration) {
    Advance(duration);
    return Pushed();
  }
  // What the display on the left shows then.
  std::string LeftIn(Milliseconds duration) {
    Advance(duration);
    return Last("push left ").substr(10);
  }
  void Forget() { wanted_.clear(); }
  std::string Health() const { return Last(std::string("retain ") + kHealthTopic); }
  // Whether its last word on itself has this part then.
  testing::AssertionResult HealthHas(const std::string& part, Milliseconds duration = 1000) {
    Advance(duration);
    const bool has = Health().find(part) != std::string::npos;
    return (has ? testing::AssertionSuccess() : testing::AssertionFailure()) << Health();
  }

  struct StoredText {
    Found found;
    std::string text;
  };
  StoredText store_{Found::kYes, kDocument};
  StoredText change_{Found::kNo, ""};
  std::function<StoredText(const bs::StoredDocument&)> stored_document_;  // of the daemon
  Milliseconds now_ = 1000000;
  std::optional<Relay> relay_{std::in_place, Start{"5e0c11a7", "1.1.0", 1763900000, 1}, now_};
  std::vector<std::string> wanted_;

 private:
  void Note(const ConnectHub& what) {
    wanted_.push_back("connect " + what.membership.host + ":" + std::to_string(what.membership.port) + " " +
                      what.client_id + " will " + what.will_topic + " " + what.will);
  }
  void Note(const DisconnectHub&) { wanted_.push_back("disconnect"); }
  void Note(const SubscribeHub& what) {
    for (const std::string& topic : what.topics) wanted_.push_back("subscribe " + topic);
  }
  void Note(const UnsubscribeHub& what) {
    for (const std::string& topic : what.topics) wanted_.push_back("unsubscribe " + topic);
  }
  void Note(const PublishHub& what) {
    wanted_.push_back((what.retained ? "retain " : "publish ") + what.topic + " " + what.payload +
                      (what.expiry_s > 0 ? " for " + std::to_string(what.expiry_s) : "") +
                      (what.correlation ? " to " + *what.correlation : ""));
  }
  void Note(const PushCounts& what) {
    Json::Value push;
    ASSERT_TRUE(ParseObject(what.text, &push)) << what.text;
    const unsigned pos = push["pos"].asUInt();
    EXPECT_EQ(push["s_addr"].asUInt(), pos + 1);
    EXPECT_EQ(push["cm_dev"].size(), 1U);
    EXPECT_EQ(push["cm_dev"][0]["ip"], push["s_addr"]);
    EXPECT_EQ(push["cm_dev"][0]["tn"], push["totle"]);
    EXPECT_EQ(push["cm_dev"][0]["fn"], push["free"]);
    wanted_.push_back(std::string("push ") + bs::kDirectionNames.at(pos) + " " + push["totle"].asString() + "/" +
                      push["free"].asString());
  }
  void Note(const Broadcast& what) { wanted_.push_back("broadcast " + what.text); }
  void Note(const AllowRequests& what) { wanted_.push_back(what.on ? "requests on" : "requests off"); }
  void Note(const AskDevice& what) { wanted_.push_back("ask " + std::to_string(what.id) + " " + what.text); }
  void Note(const ReadStore& what) {
    if (what.key == StoreKey::kDocument) {
      const StoredText stored = stored_document_(*what.document);
      relay_->StoreRead(what.key, stored.found, stored.text, now_);
      return;
    }
    const auto& kept = what.key == StoreKey::kChange ? change_ : store_;
    relay_->StoreRead(what.key, kept.found, kept.text, now_);
  }
  void Note(const WriteStore& what) {
    auto& kept = what.key == StoreKey::kChange ? change_ : store_;
    const bool done = kept.found != Found::kUnreachable;
    if (done) kept = {what.text.empty() ? Found::kNo : Found::kYes, what.text};
    relay_->StoreWritten(what.key, done, now_);
  }
  void Note(const Say& what) { wanted_.push_back("say " + std::to_string(what.level) + " " + what.text); }
};

}  // namespace relay
