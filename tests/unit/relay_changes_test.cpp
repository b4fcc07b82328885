#include "protocol/json_text.h"
#include "relay/change_guard.h"
#include "relay_bench.h"

namespace relay {
namespace {

// A device with two documents; what the relay asks of it is answered at once unless it is away.
class RelayChanges : public RelayBench {
 protected:
  static constexpr char kConfigured[] = R"({"broker":"mqtt://hub","device":"A","remote":"configure","site":"garage"})";

  RelayChanges() {
    store_.text = kConfigured;
    documents_["ttyio_cfg"] = Value(R"({"baudrate": 9600})");
    documents_["dev_pos"] = Value(R"({"pos": 1})");
    stored_document_ = [this](const bs::StoredDocument& document) {
      if (store_away_) return StoredText{Found::kUnreachable, ""};
      if (&document == &kDeviceChange) return others_;
      const bool is_position = &document == &bs::kDevPos;
      EXPECT_TRUE(is_position || &document == &bs::kDeviceTtyio) << document.key;
      return StoredText{Found::kYes, CompactText(documents_[is_position ? "dev_pos" : "ttyio_cfg"]) + '\0'};
    };
    Connect(R"({"zone": "L1"})");
    Serve();
  }

  static Json::Value Value(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(ParseObject(text, &value)) << text;
    return value;
  }

  void Serve() {
    for (size_t i = 0; i < wanted_.size(); ++i) {
      const std::string line = wanted_[i];
      if (line.compare(0, 4, "ask ") != 0) continue;
      wanted_[i] = "asked " + line.substr(4);
      if (away_) continue;
      const size_t space = line.find(' ', 4);
      const Json::Value request = Value(line.substr(space + 1));
      const std::string type = request["type"].asString();
      if (refuses_ == type) {
        Answer(std::stoul(line.substr(4)), R"({"state": 404, "error_msg": "set error"})");
        continue;
      }
      Json::Value& document = documents_[type.substr(4)];
      if (type.substr(0, 4) == "set_") {
        if (ignores_ != type) document = request["body"];
        sets_ += (sets_.empty() ? "" : ", ") + type.substr(4) + CompactText(request["body"]);
      }
      Json::Value body = document;
      if (forgets_) body = Value(R"({"default": 0})");
      Answer(std::stoul(line.substr(4)), ReplyText(type, 200, "All done", type[0] == 'g' ? body : Json::Value()));
    }
  }

  // Sends a request of the site and returns the reply's state and text, empty for none yet.
  std::string Request(const std::string& text) {
    Forget();
    relay_->HubHeard({"park/garage/request/A", text, false, "park/garage/reply/me", std::nullopt}, now_);
    Collect();
    Serve();
    return Reply();
  }
  std::string Reply() {
    const std::string line = Last("publish park/garage/reply/me ");
    if (line.empty()) return "";
    reply_ = Value(line.substr(line.find('{')));
    return reply_["state"].asString() + " " + reply_["error_msg"].asString();
  }
  std::string Try(const std::string& changes, int seconds = 60) {
    return Request(R"({"type": "try_change", "body": {"id": "x-1", "seconds": )" + std::to_string(seconds) +
                   ", \"changes\": [" + changes + "]}}");
  }
  std::string Keep(const std::string& id) {
    return Request(R"({"type": "keep_change", "body": {"id": ")" + id + "\"}}");
  }
  std::string Undo() { return Request(R"({"type": "undo_change", "body": {"id": "x-1"}})"); }
  // What is told of the change that waits.
  std::string Waiting() {
    EXPECT_EQ(Request(R"({"type": "get_change"})"), "200 All done");
    return CompactText(reply_["body"]);
  }
  std::string Two() const {
    return R"({"type": "set_ttyio_cfg", "body": {"baudrate": 19200}}, {"type": "set_dev_pos", "body": {"pos": 2}})";
  }
  void Wait(Milliseconds duration) {
    for (const Milliseconds end = now_ + duration; now_ < end;) {
      Advance(std::min<Milliseconds>(end - now_, 1000));
      Serve();
    }
  }
  std::string Held() { return CompactText(documents_["ttyio_cfg"]) + CompactText(documents_["dev_pos"]); }
  std::string Sets() { return std::exchange(sets_, {}); }

  const std::string before_ = R"({"baudrate":9600}{"pos":1})";
  const std::string after_ = R"({"baudrate":19200}{"pos":2})";
  std::map<std::string, Json::Value> documents_;
  StoredText others_{Found::kNo, ""};  // change, made on the device itself
  bool away_ = false;
  bool store_away_ = false;
  bool forgets_ = false;  // its store: it answers what it goes by without
  std::string refuses_, ignores_, sets_;
  Json::Value reply_;
};

TEST_F(RelayChanges, WhatIsNotKeptGoesBackInReverse) {
  EXPECT_EQ(Try(Two()), "200 All done");
  EXPECT_EQ(CompactText(reply_["body"]), R"({"id":"x-1","seconds":60,"stored":[{"body":{"baudrate":19200},)"
                                         R"("type":"set_ttyio_cfg"},{"body":{"pos":2},"type":"set_dev_pos"}]})");
  EXPECT_EQ(Sets(), R"(ttyio_cfg{"baudrate":19200}, dev_pos{"pos":2})");
  Wait(20000);
  EXPECT_EQ(Waiting(), R"({"id":"x-1","seconds_left":40})");
  HubDown();  // with the hub gone too
  Wait(39000);
  EXPECT_EQ(Held(), after_);
  Wait(1000);
  EXPECT_EQ(Held(), before_);
  EXPECT_EQ(Sets(), R"(dev_pos{"pos":1}, ttyio_cfg{"baudrate":9600})");
  EXPECT_EQ(change_.found, Found::kNo);
}

TEST_F(RelayChanges, WhatIsKeptStaysAndWhatIsUndoneGoesAtOnce) {
  EXPECT_EQ(Keep("x-1"), "404 no such change waits");
  Try(Two());
  EXPECT_EQ(Keep("x-2"), "404 no such change waits");
  EXPECT_EQ(Keep("x-1"), "200 All done");
  Wait(100000);
  EXPECT_EQ(Held(), after_);
  EXPECT_EQ(change_.found, Found::kNo);
  EXPECT_EQ(Waiting(), "{}");

  documents_["dev_pos"] = Value(R"({"pos": 3})");
  Try(Two());
  EXPECT_EQ(Undo(), "200 All done");
  EXPECT_EQ(Held(), R"({"baudrate":19200}{"pos":3})");
}

TEST_F(RelayChanges, OneAtATimeAndTheSameOneAgainIsLonger) {
  Try(Two(), 10);
  EXPECT_EQ(Request(R"({"type": "try_change", "body": {"id": "y", "seconds": 60, "changes": [)" + Two() + "]}}"),
            "409 another change waits");
  EXPECT_EQ(Try(R"({"type": "set_dev_pos", "body": {"pos": 3}})"), "409 another change waits");
  Wait(9000);
  Sets();
  EXPECT_EQ(Try(Two(), 30), "200 All done");
  EXPECT_EQ(reply_["body"]["stored"].size(), 2U);
  EXPECT_EQ(Sets(), "");
  change_.found = Found::kUnreachable;
  EXPECT_EQ(Try(Two(), 60), "503 the store does not answer");  // as long as it was, then
  change_.found = Found::kYes;
  Wait(29000);
  EXPECT_EQ(Held(), after_);
  Wait(1000);
  EXPECT_EQ(Held(), before_);
}

TEST_F(RelayChanges, OneAtATimeOnTheWholeDevice) {
  const char kDevices[] = R"({"id":"config-7","seconds":60,"boot":"","deadline":40000,"changes":[]})";
  others_ = {Found::kYes, kDevices};
  EXPECT_EQ(Try(Two()), "409 another change waits, made on the device itself");
  EXPECT_EQ(Sets(), "");
  EXPECT_EQ(change_.found, Found::kNo);
  EXPECT_EQ(Waiting(), R"({"other":{"id":"config-7","seconds_left":0}})");
  EXPECT_EQ(Keep("config-7"), "404 no such change waits");
  others_ = {Found::kUnreachable, ""};
  EXPECT_EQ(Request(R"({"type": "get_change"})"), "503 the store does not answer");
  EXPECT_EQ(Try(Two()), "503 the store does not answer, nothing was changed");
  EXPECT_EQ(Sets(), "");
  others_ = {Found::kYes, "nonsense"};  // nobody knows what it was: it has to be taken away by hand
  EXPECT_EQ(Try(Two()), "409 another change waits, made on the device itself");
  others_ = {Found::kNo, ""};
  EXPECT_EQ(Try(Two()), "200 All done");
}

TEST_F(RelayChanges, WhatFailsOnTheWayLeavesNothing) {
  const std::tuple<const char*, std::string, std::string, const char*> kCases[] = {
      {"refused reading", "get_dev_pos", "", "404 set_dev_pos: set error"},
      {"refused", "set_dev_pos", "", "404 set_dev_pos: set error"},
      {"not stored", "", "set_dev_pos", "409 set_dev_pos: the device did not store set_dev_pos as it was sent"},
  };
  for (const auto& [what, refuses, ignores, reply] : kCases) {
    refuses_ = refuses;
    ignores_ = ignores;
    EXPECT_EQ(Try(Two()), reply) << what;  // at once, whatever the device goes on to refuse
    EXPECT_EQ(Held(), before_) << what;
    EXPECT_EQ(change_.found, Found::kNo) << what;
  }
  ignores_ = "";
  // Taken at first, and not to be had back for a while.
  Try(Two());
  refuses_ = "set_ttyio_cfg";
  EXPECT_EQ(Undo(), "");
  Wait(20000);
  EXPECT_EQ(Of("say 3").size(), 1U);
  refuses_ = "";
  Wait(6000);
  EXPECT_EQ(Reply(), "200 All done");
  EXPECT_EQ(Held(), before_);

  // Not to be had back at all: said as it is, the other document goes back all the same.
  Try(Two());
  refuses_ = "set_dev_pos";
  Undo();
  Wait(120000);
  EXPECT_EQ(Reply(), "500 set_dev_pos is not set back: set error");
  EXPECT_EQ(Held(), R"({"baudrate":9600}{"pos":2})");
  refuses_ = "";
  documents_["dev_pos"] = Value(R"({"pos": 1})");

  change_.found = Found::kUnreachable;
  Sets();
  EXPECT_EQ(Try(Two()), "503 the store does not answer, nothing was changed");
  EXPECT_EQ(Sets(), "");
}

TEST_F(RelayChanges, ADefaultThatHidesWhatIsStoredIsNotSetBack) {
  const std::pair<bool, const char*> kCases[] = {
      {true, "503 set_ttyio_cfg: the store does not answer"},
      {false, "503 set_ttyio_cfg: the device does not say what is stored"}};  // back for the relay only
  for (const auto& [store_away, reply] : kCases) {
    forgets_ = true;
    store_away_ = store_away;
    EXPECT_EQ(Try(Two()), reply);
    EXPECT_EQ(Sets(), "");
    EXPECT_EQ(change_.found, Found::kNo);
    forgets_ = store_away_ = false;
  }
  // What was not stored before is a default: that one is answered does not say that it is stored again.
  documents_["ttyio_cfg"] = documents_["dev_pos"] = Value(R"({"default": 0})");
  EXPECT_EQ(Try(Two(), 10), "200 All done");
  forgets_ = store_away_ = true;
  refuses_ = "set_dev_pos";
  Wait(300000);
  EXPECT_EQ(Held(), after_);
  forgets_ = store_away_ = false;
  refuses_ = "";
  Wait(11000);
  EXPECT_EQ(Held(), R"({"default":0}{"default":0})");
}

TEST_F(RelayChanges, ADeviceThatIsAwayIsWaitedFor) {
  Try(Two(), 10);
  away_ = true;
  Wait(60000);
  EXPECT_EQ(Held(), after_);
  EXPECT_LE(Of("say 3").size(), 1U);
  away_ = false;
  Wait(11000);
  EXPECT_EQ(Held(), before_);
}

TEST_F(RelayChanges, OutliveTheRelay) {
  const std::string boot = "b1";
  const auto restart = [this](const std::string& run_of_machine) {
    relay_.emplace(Start{"00000002", "1.1.0", 0, 1, run_of_machine}, now_);
    BusUp();
    HubUp();
    Settle();
    Serve();
  };
  restart(boot);
  Try(Two());
  Wait(10000);
  restart(boot);
  EXPECT_EQ(Held(), after_);
  EXPECT_EQ(Try(Two(), 50), "200 All done");  // known by its name still
  Wait(49000);
  EXPECT_EQ(Held(), after_);
  restart("b2");  // the machine started anew: its clock tells nothing
  Wait(1000);
  EXPECT_EQ(Held(), before_);
  restart("");  // where nobody knows whether it did, neither
  Try(Two());
  restart("");
  Wait(1000);
  EXPECT_EQ(Held(), before_);

  // Ended between the first and the second set.
  refuses_ = "set_dev_pos";
  away_ = false;
  Try(Two());
  refuses_ = "";
  restart("b2");
  Wait(6000);
  EXPECT_EQ(Held(), before_);
  EXPECT_EQ(change_.found, Found::kNo);
  change_ = {Found::kYes, "nonsense"};
  restart("b2");
  EXPECT_EQ(change_.found, Found::kNo);
}

TEST_F(RelayChanges, AWrongHubGoesBackByItself) {
  const std::string change = R"({"type": "set_relay_cfg", "body": {"site": "garage", "device": "A", "broker": )"
                             R"("mqtt://nowhere", "remote": "off"}})";
  EXPECT_EQ(Try(Two() + ", " + change), "200 All done");
  // Answered on the old connection, then it leaves.
  const auto answer = std::find_if(wanted_.begin(), wanted_.end(),
                                   [](const std::string& line) { return line.find("reply/me") != std::string::npos; });
  const auto left = std::find(wanted_.begin(), wanted_.end(), "disconnect");
  ASSERT_NE(left, wanted_.end());
  EXPECT_LT(answer, left);
  EXPECT_EQ(Last("connect").substr(0, 20), "connect nowhere:1883");
  HubDown();
  Wait(58000);
  EXPECT_EQ(Held(), after_);
  Wait(3000);
  EXPECT_EQ(store_.text, kConfigured);
  EXPECT_EQ(Held(), before_);  // although the site may ask nothing now
  EXPECT_EQ(Last("connect").substr(0, 12), "connect hub:");
}

TEST_F(RelayChanges, TheBeaconsIdentityGoesBackWhereItIsAText) {
  const std::string other = R"({"type": "set_bt", "body": {"uuid": "OTHER", "major": 7, "minor": 2}})";
  documents_["bt"] = Value(R"({"uuid": "FACTORY", "major": 1, "minor": 2})");
  const Json::Value factory = documents_["bt"];
  EXPECT_EQ(Try(other), "200 All done");
  EXPECT_EQ(documents_["bt"]["uuid"], "OTHER");
  Wait(61000);
  EXPECT_EQ(documents_["bt"], factory);
  Sets();
  for (const char* uuid : {"", "A\xEF\xBF\xBD"}) {  // the module is silent, or goes by bytes that are no text
    documents_["bt"]["uuid"] = uuid;
    EXPECT_EQ(Try(other), "409 set_bt: what the beacon module goes by cannot be set back");
    EXPECT_EQ(Sets(), "");
  }
}

TEST_F(RelayChanges, TheRelaysOwnDocument) {
  EXPECT_EQ(Request(R"({"type": "get_relay_cfg"})"), "200 All done");
  EXPECT_EQ(CompactText(reply_["body"]), kConfigured);
  EXPECT_EQ(Request(R"({"type": "set_relay_cfg", "body": {"broker": "ftp://x"}})").substr(0, 14), "404 set error:");
  EXPECT_EQ(Request(R"({"type": "set_relay_cfg"})").substr(0, 14), "404 set error:");
  EXPECT_EQ(store_.text, kConfigured);
  EXPECT_EQ(Request(R"({"type": "set_relay_cfg", "body": {"site": "garage", "device": "A", "broker": "mqtt://hub", )"
                    R"("remote": "read"}})"),
            "200 All done");
  EXPECT_EQ(Request(R"({"type": "set_relay_cfg", "body": {}})"), "403 not allowed from the site");
  EXPECT_EQ(Try(Two()), "403 not allowed from the site");
  EXPECT_EQ(Request(R"({"type": "get_change"})"), "200 All done");
}

TEST_F(RelayChanges, AreRefusedWithTheReason) {
  const std::pair<const char*, const char*> kCases[] = {
      {R"({"id": "a b", "seconds": 60, "changes": []})", "\"id\" is no name of 1 to 32 of A-Z a-z 0-9 _ -"},
      {R"({"id": "a", "seconds": 0, "changes": []})", "\"seconds\" is no whole number from 1 to 3600"},
      {R"({"id": "a", "seconds": 3601, "changes": []})", "\"seconds\" is no whole number from 1 to 3600"},
      {R"({"id": "a", "seconds": 60})", "\"changes\" is no list of 1 to 32 requests"},
      {R"({"id": "a", "seconds": 60, "changes": [{"type": "cmd", "body": {}}]})",
       "\"cmd\" cannot be set back and so not be tried"},
      {R"({"id": "a", "seconds": 60, "changes": [{"type": "set_dev_led", "body": {}}]})",
       "\"set_dev_led\" cannot be set back and so not be tried"},
      {R"({"id": "a", "seconds": 60, "changes": [{"type": "set_dev_pos"}]})", "\"set_dev_pos\" has no body"},
      {R"({"id": "a", "seconds": 60, "changes": [{"type": "set_dev_pos", "body": {}}, {"type": "set_dev_pos", "body": {}}]})",
       "\"set_dev_pos\" stands there twice"},
      {R"([])", "\"id\" is no name of 1 to 32 of A-Z a-z 0-9 _ -"},
  };
  for (const auto& [body, error_msg] : kCases) {
    EXPECT_EQ(Request(std::string(R"({"type": "try_change", "body": )") + body + "}"), std::string("400 ") + error_msg);
  }
  EXPECT_EQ(ReadingCommand("set_ibc_name"), "get_ibc_name");
  EXPECT_EQ(ReadingCommand("get_ibc_name"), "");
}

}  // namespace
}  // namespace relay
