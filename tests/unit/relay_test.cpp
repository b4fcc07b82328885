#include "relay_bench.h"

namespace relay {
namespace {

using Lines = std::vector<std::string>;

constexpr char kZoneB[] = R"({"zone": "L2/B"})";
constexpr char kLeftC[] = R"({"zone": "L2/B", "shows": {"left": ["L2/C"]}})";

TEST_F(RelayBench, IntroducesItselfAndSaysEverything) {
  BusUp();
  EXPECT_EQ(Of("broadcast"), (Lines{R"(broadcast {"type": "relay_started"})"}));
  EXPECT_EQ(Last("connect"), R"(connect hub:1883 park-garage-A-5e0c11a7 will park/garage/health/A {"online": false})");
  Frame(3, 1);
  Forget();
  HubUp();
  EXPECT_EQ(wanted_[0],
            R"(retain park/garage/health/A {"online": true, "run": "5e0c11a7", "daemon": "ok", "version": "1.1.0", )"
            R"("since": 1763900000, "plan": "none", "spaces": 3, "free": 1, "shows": {}, "rejected": 0})");
  EXPECT_EQ(Of("subscribe"), (Lines{"subscribe park/garage/counts/A/#", "subscribe park/garage/health/A",
                                    "subscribe park/garage/plan/A", "subscribe park/garage/request/A"}));
  EXPECT_EQ(Last("retain park/garage/counts"), "");  // no zone
  Plan(kLeftC);
  EXPECT_EQ(Of("retain park/garage/counts"),
            (Lines{R"(retain park/garage/counts/A/L2/B {"spaces": 3, "free": 1} for 90)"}));
  EXPECT_EQ(Last("subscribe"), "subscribe park/garage/counts/+/L2/C/#");
  Settle();
  Counts("B/L2/C", 3, 2);
  Advance(1000);
  EXPECT_NE(Health().find(R"("shows": {"left": {"devices": 1, "spaces": 3, "free": 2, "missing": [], )"
                          R"("missing_count": 0}}, "rejected": 0})"),
            std::string::npos)
      << Health();
}

TEST_F(RelayBench, OwnCountsHaveRoomBetweenThemAndAreRepeated) {
  Connect(kZoneB);
  const std::string head = "retain park/garage/counts/A/L2/B ";
  const struct {
    int free;  // of what the daemon says; -1: it says nothing
    Milliseconds wait;
    size_t said;  // so far
  } kSteps[] = {{3, 0, 1}, {2, 0, 1}, {1, 99, 1}, {-1, 1, 2}, {-1, 24999, 2}, {-1, 1, 3}, {1, 0, 3}};
  for (const auto& step : kSteps) {
    if (step.free >= 0) Frame(3, step.free);
    Advance(step.wait);
    EXPECT_EQ(Of(head).size(), step.said) << now_;
  }
  EXPECT_EQ(Of(head)[0], head + R"({"spaces": 3, "free": 3} for 90)");
  EXPECT_EQ(Of(head)[1], head + R"({"spaces": 3, "free": 1} for 90)");
}

TEST_F(RelayBench, ASilentDaemonsCountsAreNotRepeated) {
  Connect(kZoneB);
  Frame(3, 1);
  Advance(69999);
  EXPECT_EQ(Health().find("silent"), std::string::npos);
  Forget();
  EXPECT_TRUE(HealthHas(R"("daemon": "silent")", 1));
  EXPECT_EQ(Health().find("\"spaces\""), std::string::npos);
  Advance(200000);
  EXPECT_EQ(Of("retain park/garage/counts"), Lines());
  // More pushed than there is: no count, and no sign that there will be one.
  Frame(3, 1, "2:4/1");
  EXPECT_EQ(Of("retain park/garage/counts"), Lines());
  Frame(3, 1);  // the same as before the silence, yet it has to be said
  EXPECT_EQ(Of("retain park/garage/counts").size(), 1U);
}

TEST_F(RelayBench, AZoneThatChangesIsClearedFirst) {
  Connect(R"({"zone": "L1"})");
  Plan(kZoneB);  // what an earlier run said there would be counted on
  EXPECT_EQ(Of("retain park/garage/counts"), (Lines{"retain park/garage/counts/A/L1 "}));
  Frame(3, 1);
  Forget();
  Plan(R"({"zone": "L3"})");
  EXPECT_EQ(Of("retain park/garage/counts"),
            (Lines{"retain park/garage/counts/A/L2/B ",
                   R"(retain park/garage/counts/A/L3 {"spaces": 3, "free": 1} for 90)"}));
}

TEST_F(RelayBench, WhatAnEarlierRunLeftInOtherZonesIsCleared) {
  BusUp();
  HubUp();
  Kept("park/garage/counts/A/L1", R"({"spaces": 3, "free": 1})");
  Kept("park/garage/counts/A/L2/B", R"({"spaces": 3, "free": 1})");
  Advance(1000);
  EXPECT_EQ(Of("retain park/garage/counts"), Lines());  // it may be there that it belongs
  Plan(kZoneB);
  Kept("park/garage/counts/A/L4", R"({"spaces": 3, "free": 1})");  // the hub's answers come in any order
  Kept("park/garage/counts/A/L5", "");
  Settle();
  EXPECT_EQ(Of("retain park/garage/counts"),
            (Lines{"retain park/garage/counts/A/L1 ", "retain park/garage/counts/A/L4 "}));
  EXPECT_EQ(Of("unsubscribe"), (Lines{"unsubscribe park/garage/counts/A/#"}));
  EXPECT_EQ(Health().find("\"rejected\": 1"), std::string::npos);
  Forget();
  HubUpAgain();
  EXPECT_EQ(Of("subscribe park/garage/counts"), Lines());
}

TEST_F(RelayBench, APlanThatCannotBeReadLeavesTheLastGoodOne) {
  Connect(kLeftC);
  Counts("B/L2/C", 3, 2);
  EXPECT_EQ(Pushed(), "left 3/2");
  Plan(R"({"zone": "L 3"})");
  EXPECT_TRUE(HealthHas(R"("plan": "unreadable")"));
  EXPECT_TRUE(HealthHas(R"("left": {"devices": 1)", 0));
  Plan("");
  EXPECT_EQ(Pushed(), "left 0/0");
  EXPECT_EQ(PushedIn(60000), "");  // once
}

TEST_F(RelayBench, AnEmptyPlanClearsAHubWithoutMemoryDoesNot) {
  Connect(kLeftC);
  Frame(3, 1);
  Counts("B/L2/C", 3, 2);
  Forget();
  HubUpAgain();
  Settle();
  EXPECT_TRUE(HealthHas(R"("plan": "ok")"));
  EXPECT_EQ(Of("subscribe park/garage/counts").size(), 1U);
  Forget();
  Plan("");
  EXPECT_EQ(Of("retain park/garage/counts"), (Lines{"retain park/garage/counts/A/L2/B "}));
  EXPECT_EQ(Of("push"), (Lines{"push left 0/0"}));
  EXPECT_EQ(Of("unsubscribe"), (Lines{"unsubscribe park/garage/counts/+/L2/C/#"}));
  EXPECT_TRUE(HealthHas(R"("plan": "none")"));
}

TEST_F(RelayBench, SumsCountEachDeviceOnceInADirection) {
  Connect(R"({"zone": "L2/B", "shows": {"left": ["L2", "L2/C"], "front": ["L2/C/x", "L3"], "group": ["L2/C"]}})");
  Pushed();
  Counts("B/L2/C/x", 3, 2);   // left, front, group
  Counts("C/L2", 10, 5);      // left
  Counts("D/L20", 100, 100);  // beside it
  Counts("A/L2/C", 7, 7);     // itself
  Counts("B/L2/C/x", 3, 1);
  EXPECT_EQ(LeftIn(2000), "13/6");
  EXPECT_EQ(Last("push front"), "push front 3/1");
  EXPECT_EQ(Last("push group"), "push group 3/1");
  Counts("B/L3", 3, 0);  // moved: its latest word counts
  EXPECT_EQ(LeftIn(2000), "10/5");
  EXPECT_EQ(Last("push front"), "push front 3/0");
  EXPECT_EQ(Last("push group"), "push group 0/0");
  Hub("park/garage/counts/B/L2/C/x", "");  // its old place is cleared late
  Advance(2000);
  EXPECT_EQ(Last("push front"), "push front 3/0");
  Hub("park/garage/counts/B/L3", "");
  EXPECT_EQ(Last("push front"), "push front 0/0");
}

TEST_F(RelayBench, WhoFallsSilentIsDroppedAndMissed) {
  Connect(kLeftC);
  Counts("B/L2/C", 3, 2);
  EXPECT_EQ(LeftIn(69999), "3/2");
  EXPECT_EQ(LeftIn(1001), "0/0");
  EXPECT_TRUE(HealthHas(R"("missing": ["B"], "missing_count": 1)", 0));
  Counts("B/L2/C", 3, 2);
  EXPECT_TRUE(HealthHas(R"("missing": [], "missing_count": 0)"));
  for (int i = 30; i >= 10; --i) Counts("C" + std::to_string(i) + "/L2/C", 1, 1);
  EXPECT_TRUE(HealthHas(R"("missing": ["B", "C10", )", 71000));
  EXPECT_TRUE(HealthHas(R"("C28"], "missing_count": 22)", 0));
  Hub("park/garage/counts/B/L2/C", "");  // it has said that it went
  EXPECT_TRUE(HealthHas(R"("missing": ["C10", )"));
  Plan(R"({"zone": "L2/B", "shows": {"left": ["L2/C", "L4"]}})");
  EXPECT_TRUE(HealthHas(R"("missing": [], "missing_count": 0)"));
}

TEST_F(RelayBench, AKeptCountIsGoodForAShorterTime) {
  Connect(kLeftC);
  Kept("park/garage/counts/B/L2/C", R"({"spaces": 3, "free": 2})");
  EXPECT_EQ(LeftIn(29999), "3/2");
  EXPECT_EQ(LeftIn(1), "0/0");

  Counts("B/L2/C", 3, 1);
  Kept("park/garage/counts/B/L3", R"({"spaces": 3, "free": 3})");  // the broker's memory of where it was
  Kept("park/garage/counts/B/L2/C", R"({"spaces": 3, "free": 3})");
  EXPECT_EQ(LeftIn(69999), "3/1");
  Counts("B/L2/C", 3, 0);
  Advance(30000);
  HubUpAgain();
  Kept("park/garage/counts/B/L2/C", R"({"spaces": 3, "free": 2})");  // newer than what was heard before the cut
  Settle();
  EXPECT_EQ(LeftIn(1000), "3/2");
  Advance(30000);  // and no shorter than what was heard live
  EXPECT_EQ(Last("push left"), "push left 3/2");
  EXPECT_EQ(LeftIn(6000), "0/0");
}

TEST_F(RelayBench, PushesHaveRoomBetweenThem) {
  Connect(R"({"zone": "L2/B", "shows": {"left": ["L3"], "right": ["L4"]}})");
  EXPECT_EQ(PushedIn(1000), "");
  Counts("B/L3", 3, 3);
  EXPECT_EQ(Pushed(), "left 3/3");
  // A direction that changes all the time does not starve the other.
  for (int i = 0; i < 20; ++i) {
    Counts("B/L3", 100, i);
    if (i == 2) Counts("C/L4", 1, 1);
    Advance(50);
  }
  EXPECT_EQ(PushedIn(1000), "right 1/1, left 100/19");
  Counts("B/L3", 3, 3);
  Counts("B/L3", 100, 19);  // back before there was room
  EXPECT_EQ(PushedIn(499), "left 3/3");
}

TEST_F(RelayBench, PushesAreRepeatedWhenTheDaemonLostThem) {
  Connect(kLeftC);
  Counts("B/L2/C", 3, 2);
  EXPECT_EQ(Pushed(), "left 3/2");
  const struct {
    const char* held;  // of the pushes, by the daemon; null: it says nothing
    Milliseconds wait;
    const char* pushed;
  } kSteps[] = {
      {nullptr, 900, ""},       {"", 99, ""},  // was on its way
      {"2:3/2", 2, ""},         {"", 0, "left 3/2"},
      {nullptr, 300, ""},       {"", 699, ""},  // the only word of a daemon that was started anew
      {nullptr, 1, "left 3/2"}, {nullptr, 300, ""},
      {"", 10000, ""},  // this one takes nothing: it is not pressed
      {"2:3/1", 0, "left 3/2"}, {nullptr, 24999, ""},
      {nullptr, 1, "left 3/2"},
  };
  for (const auto& step : kSteps) {
    if (step.held != nullptr) Frame(*step.held == '\0' ? 3 : 6, 3, step.held);
    EXPECT_EQ(PushedIn(step.wait), step.pushed) << now_;
  }
  relay_->BusDown(now_);
  Counts("B/L2/C", 3, 1);
  EXPECT_EQ(PushedIn(60000), "");
  Counts("B/L2/C", 3, 0);
  BusUp();
  EXPECT_EQ(Last("broadcast"), R"(broadcast {"type": "relay_started"})");
  EXPECT_EQ(Pushed(), "left 3/0");
}

TEST_F(RelayBench, APartialSumIsNotPushed) {
  BusUp();
  HubUp();
  Subscribed();
  Plan(kLeftC);
  Advance(300);
  Kept("park/garage/counts/B/L2/C", R"({"spaces": 3, "free": 2})");
  EXPECT_EQ(PushedIn(300), "");  // the hub has not answered the subscription yet
  Subscribed();
  for (int i = 0; i < 5; ++i) {
    Advance(199);
    Kept("park/garage/counts/C" + std::to_string(i) + "/L2/C", R"({"spaces": 3, "free": 2})");
  }
  EXPECT_EQ(PushedIn(199), "");
  EXPECT_EQ(PushedIn(1), "left 18/12");

  Plan(R"({"zone": "L2/B", "shows": {"left": ["L2/C", "L3"]}})");
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(Pushed(), "") << i;
    Advance(100);
    if (i < 19) Kept("park/garage/counts/D" + std::to_string(i) + "/L3", R"({"spaces": 1, "free": 1})");
  }
  EXPECT_EQ(Pushed(), "left 37/31");  // 2 s at most

  Plan(R"({"zone": "L2/B", "shows": {"left": ["L2/C", "L3", "L4"]}})");
  Kept("park/garage/counts/E/L4", R"({"spaces": 1, "free": 1})");
  HubDown();
  EXPECT_EQ(PushedIn(2500), "");
  HubUp();
  Settle();
  EXPECT_EQ(Pushed(), "left 38/32");
}

TEST_F(RelayBench, WhatCannotBeIsDroppedAndCounted) {
  Connect(kLeftC);
  const std::pair<const char*, const char*> kCases[] = {
      {"counts/B/L2/C", "no JSON"},
      {"counts/B/L2/C", R"({"spaces": 1, "free": 2})"},
      {"counts/B/L2/C/1/2/3/4/5/6/7", R"({"spaces": 1, "free": 1})"},
      {"other/B", R"({"spaces": 1, "free": 1})"},
      {"health/A", "x"},
  };
  for (size_t i = 0; i < std::size(kCases); ++i) {
    Hub(std::string("park/garage/") + kCases[i].first, kCases[i].second);
    EXPECT_TRUE(HealthHas("\"rejected\": " + std::to_string(i + 1))) << kCases[i].second;
  }
  EXPECT_EQ(Of("push"), Lines());
  EXPECT_EQ(Of("say 3").size(), 1U);  // not one line each
}

TEST_F(RelayBench, ADirectionHoldsSoManyDevicesAndNoMore) {
  Connect(kLeftC);
  for (int i = 0; i < 16384; ++i) Counts("D" + std::to_string(i) + "/L2/C", 1, 1);
  Counts("E/L2/C", 1, 1);
  Counts("D7/L2/C", 1, 0);  // known
  Advance(1000);
  EXPECT_EQ(Last("push"), "push left 16384/16383");
  EXPECT_TRUE(HealthHas("\"rejected\": 1}", 0));
}

TEST_F(RelayBench, MoreSpacesThanThereCanBeAreNotPushed) {
  Connect(kLeftC);
  Frame(3, 1, "2:0/0");
  Counts("B/L2/C", 1048574, 5);
  EXPECT_TRUE(HealthHas(R"("daemon": "implausible")"));
  EXPECT_EQ(Last("push"), "");
  Counts("B/L2/C", 1048573, 5);
  EXPECT_EQ(Last("push"), "push left 1048573/5");
  EXPECT_TRUE(HealthHas(R"("daemon": "ok")"));
}

TEST_F(RelayBench, ADaemonThatFindsItsCountsImplausibleIsLeftAlone) {
  const auto clear = [this] { Device(bs::kHttpRequestMessageRoot, R"({"type": "ClearAllDestAddr"})"); };
  Connect(kLeftC);
  Counts("B/L2/C", 3, 2);
  for (Milliseconds pause = 60000, i = 0; i < 8; ++i, pause = std::min<Milliseconds>(2 * pause, 3600000)) {
    Pushed();
    clear();
    Advance(pause - 1);
    clear();  // nothing new
    for (Milliseconds beat = 0; beat <= pause; beat += 20000) Counts("B/L2/C", 3, 2);
    EXPECT_EQ(Pushed(), "") << i;
    Advance(1);
    Counts("B/L2/C", 3, 2);
    EXPECT_EQ(PushedIn(600000).substr(0, 4), "left") << i;
  }
  Advance(1);
  Forget();
  clear();
  EXPECT_NE(Last("say 3").find("for 60 s"), std::string::npos) << Last("say 3");
  EXPECT_TRUE(HealthHas(R"("daemon": "implausible")"));
}

TEST_F(RelayBench, HealthIsSaidAtOnceWhenItMatters) {
  Connect(kLeftC);
  Counts("B/L2/C", 3, 2);
  Frame(3, 1);
  Advance(1000);
  Forget();
  Counts("C/L2/C", 3, 2);  // only counts and sums
  Frame(9, 5, "2:6/4");
  const std::tuple<bool, Milliseconds, bool> kSteps[] = {{false, 20000, false}, {true, 0, true},  {true, 0, false},
                                                         {false, 999, false},   {false, 1, true}, {false, 24999, false},
                                                         {false, 1, true}};
  for (const auto& [rejects, wait, said] : kSteps) {
    if (rejects) Hub("park/garage/x", "");
    Advance(wait);
    EXPECT_EQ(!Health().empty(), said) << now_;
    Forget();
  }
}

TEST_F(RelayBench, ALateWillIsAnsweredAndTwoDevicesOfOneNameAreTold) {
  Connect(kLeftC);
  Hub(kHealthTopic, R"({"online": false})");
  EXPECT_TRUE(HealthHas(R"("online": true)", 0));
  const std::string other = R"({"online": true, "run": "00000001"})";
  Kept(kHealthTopic, other);  // an earlier run's
  Hub(kHealthTopic, R"({"online": true, "run": "5e0c11a7"})");
  Advance(1000);
  EXPECT_EQ(Of("say 3"), Lines());
  Hub(kHealthTopic, other);
  EXPECT_EQ(Of("say 3").size(), 1U);
  Advance(300000);
  Hub(kHealthTopic, other);
  EXPECT_EQ(Of("say 3").size(), 1U);
  EXPECT_TRUE(HealthHas(R"("duplicate": true)", 599000));
  Advance(2000);
  EXPECT_EQ(Health().find("duplicate"), std::string::npos);
}

TEST_F(RelayBench, NamesThatChangeLeaveNothingBehind) {
  Connect(kLeftC);
  Frame(3, 1);
  Counts("B/L2/C", 3, 2);
  Forget();
  Store(R"({"site": "garage", "device": "A2", "broker": "mqtt://hub"})");
  EXPECT_EQ(wanted_[0], "retain park/garage/counts/A/L2/B ");
  EXPECT_EQ(wanted_[1], "retain park/garage/health/A ");
  EXPECT_EQ(wanted_[2], "disconnect");
  EXPECT_NE(Last("connect").find("park-garage-A2-"), std::string::npos);
  EXPECT_EQ(PushedIn(500), "left 0/0");
  HubUp();
  EXPECT_EQ(Of("subscribe park/garage/counts"),
            (Lines{"subscribe park/garage/counts/A2/#"}));  // the plan was the other name's
  Forget();
  Store(R"({"broker": ""})");
  EXPECT_EQ(Of("retain"), (Lines{"retain park/garage/health/A2 "}));
  EXPECT_EQ(Of("disconnect").size(), 1U);
  Advance(100000);
  EXPECT_EQ(Of("connect"), Lines());
}

TEST_F(RelayBench, AnotherHubIsJoinedInOrder) {
  Connect(kLeftC);
  Store(R"({"site": "garage", "device": "A", "broker": "mqtt://hub", "remote": "read"})");
  EXPECT_EQ(Of("requests"), (Lines{"requests on"}));
  EXPECT_EQ(Of("disconnect"), Lines());
  Store(R"({"site": "garage", "device": "A", "broker": "mqtts://hub"})");
  EXPECT_EQ(Of("requests").back(), "requests off");
  EXPECT_EQ(Of("retain"), (Lines{"retain park/garage/counts/A/L2/B ",  // nobody speaks for it there any more
                                 R"(retain park/garage/health/A {"online": false})"}));
  EXPECT_EQ(Last("connect").substr(0, 16), "connect hub:8883");
  HubUp();
  EXPECT_EQ(Of("subscribe park/garage/counts/+").size(), 1U);
  Forget();
  Store(R"({"site": "garage", "device": "A", "broker": "mqtts://hub", "user": "B"})");
  EXPECT_EQ(Of("retain"), (Lines{R"(retain park/garage/health/A {"online": false})"}));  // to return at once
  HubUp();
  HubDown();
  Store(kDocument);
  EXPECT_EQ(Of("retain park/garage/counts"), Lines());  // where nobody hears
  HubUp();
  Forget();
  relay_->Stop();
  Advance(0);
  Hub(kPlanTopic, "");  // too late to matter
  EXPECT_EQ(Of("disconnect").size(), 1U);
}

TEST_F(RelayBench, ADocumentThatCannotBeUsedIsSaidOnce) {
  Connect(kLeftC);
  Store("", Found::kUnreachable);
  Advance(4999);
  EXPECT_EQ(Of("disconnect"), Lines());
  store_ = {Found::kYes, "nonsense"};
  Advance(1);  // asked again
  EXPECT_EQ(Of("disconnect").size(), 1U);
  EXPECT_EQ(Of("say 3").size(), 1U);
  Store("nonsense");
  EXPECT_EQ(Of("say 3").size(), 1U);
  Store("", Found::kNo);
  EXPECT_EQ(Of("say 3").size(), 2U);
  Forget();
  Device(bs::kHttpBroadcastMessageRoot, R"({"type": "relay_started"})");  // its own: nothing is read
  store_ = {Found::kYes, kDocument};
  Advance(100000);
  EXPECT_EQ(Of("connect"), Lines());
  Device(bs::kHttpBroadcastMessageRoot, "anything");
  EXPECT_EQ(Of("connect").size(), 1U);
}

TEST_F(RelayBench, PausesGrowAndAreRandom) {
  BusUp();
  EXPECT_EQ(Of("connect").size(), 1U);
  Milliseconds longest_of_first_minute = 0, longest = 0, last = now_, absent = 0;
  for (int i = 0; i < 60; ++i) {
    HubDown();
    const size_t before = Of("connect").size();
    while (Of("connect").size() == before) Advance(std::max<Milliseconds>(relay_->NextTurn(), now_ + 1) - now_);
    const Milliseconds pause = now_ - last;
    last = now_;
    absent += pause;
    EXPECT_GE(pause, 1000U);
    longest = std::max(longest, pause);
    if (absent <= 60000) longest_of_first_minute = longest;
  }
  EXPECT_LE(longest_of_first_minute, 12500U);
  EXPECT_GT(longest, 15000U);
  EXPECT_LE(longest, 30000U);
}

class RelayRequests : public RelayBench {
 protected:
  void Ask(const std::string& text, const std::string& reply = "park/garage/reply/me", bool kept = false) {
    relay_->HubHeard({"park/garage/request/A", text, kept, reply, "c1"}, now_);
    Collect();
  }
  void Remote(const std::string& remote) {
    Connect(kZoneB);
    Store(R"({"site": "garage", "device": "A", "broker": "mqtt://hub", "remote": ")" + remote + "\"}");
    Forget();
  }
};

TEST_F(RelayRequests, GoToTheDeviceAndBack) {
  Remote("read");
  Ask(R"({"type": "get_bt"})");
  EXPECT_EQ(Last("ask"), R"(ask 1 {"type": "get_bt"})");
  Answer(1, "whatever");
  EXPECT_EQ(Last("publish"), "publish park/garage/reply/me whatever to c1");
  Forget();
  Answer(1, "again");
  EXPECT_EQ(Last("publish"), "");
  Ask(R"({"type": "get_bt"})");
  Advance(4999);
  EXPECT_EQ(Last("publish"), "");
  Advance(1);
  EXPECT_EQ(Last("publish"), R"(publish park/garage/reply/me )"
                             R"({"error_msg":"the device does not answer","state":504,"type":"get_bt"} to c1)");
  for (int i = 0; i < 9; ++i) Ask(R"({"type": "get_bt"})");
  EXPECT_EQ(Of("ask").size(), 9U);  // one before, eight that wait
  EXPECT_EQ(Last("publish"), R"(publish park/garage/reply/me {"error_msg":"busy","state":503,"type":"get_bt"} to c1)");
}

TEST_F(RelayRequests, AreRefusedWithTheReason) {
  Remote("off");
  Ask(R"({"type": "get_bt"})");
  EXPECT_EQ(Last("publish"), R"(publish park/garage/reply/me )"
                             R"({"error_msg":"remote requests are off","state":403,"type":"get_bt"} to c1)");
  Ask("[]");
  EXPECT_EQ(Last("publish"),
            R"(publish park/garage/reply/me {"error_msg":"not a request","state":400,"type":""} to c1)");
  Forget();
  Ask(R"({"type": "get_bt"})", "");
  Ask(R"({"type": "get_bt"})", "park/garage/plan/A");
  Ask(R"({"type": "get_bt"})", "park/garage/reply/me", true);
  EXPECT_EQ(Of("publish"), Lines());
  EXPECT_TRUE(HealthHas("\"rejected\": 3"));
}

}  // namespace
}  // namespace relay
