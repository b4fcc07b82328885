#include <gtest/gtest.h>

#include "protocol/site_names.h"
#include "relay/documents.h"
#include "relay/own_counts.h"
#include "relay/remote_requests.h"

namespace relay {
namespace {

TEST(RelayDocuments, CountsAreTakenStrictly) {
  const std::pair<const char*, std::optional<Counts>> kCases[] = {
      {R"({"spaces": 3, "free": 1})", Counts{3, 1}},
      {R"({"spaces": 3.0, "free": 1, "more": [1]})", Counts{3, 1}},
      {R"({"spaces": 1048576, "free": 1048576})", Counts{1048576, 1048576}},
      {R"({"spaces": 1048577, "free": 1})", {}},
      {R"({"spaces": 3.5, "free": 1})", {}},
      {R"({"spaces": 3, "free": 4})", {}},
      {R"({"spaces": 3, "free": -1})", {}},
      {R"({"spaces": "3", "free": 1})", {}},
      {R"({"spaces": true, "free": 1})", {}},
      {R"({"spaces": 3})", {}},
      {R"({"spaces": 3, "spaces": 2, "free": 1})", {}},
      {R"({"spaces": 3, "free": 1} x)", {}},
      {R"([{"spaces": 3, "free": 1}])", {}},
      {"3", {}},
      {"{", {}},
  };
  for (const auto& [text, counts] : kCases) EXPECT_EQ(ParseCounts(text), counts) << text;
  const std::string head = R"({"spaces": 3, "free": 1, "x": ")";
  EXPECT_TRUE(ParseCounts(head + std::string(4096 - head.size() - 2, 'x') + "\"}"));
  EXPECT_FALSE(ParseCounts(head + std::string(4096 - head.size() - 1, 'x') + "\"}"));
  EXPECT_FALSE(ParseCounts(std::string(4000, '[')));
}

TEST(RelayDocuments, TopicsOfCounts) {
  const auto text = [](const char* topic) -> std::string {
    const auto source = ParseCountsTopic("garage", topic);
    return source ? std::string(source->device) + " in " + std::string(source->zone) : "none";
  };
  EXPECT_EQ(text("park/garage/counts/B-1/L2"), "B-1 in L2");
  EXPECT_EQ(text("park/garage/counts/B-1/1/2/3/4/5/6/7/8"), "B-1 in 1/2/3/4/5/6/7/8");
  for (const char* wrong : {"park/garage/counts/B-1/1/2/3/4/5/6/7/8/9", "park/garage/counts/B-1",
                            "park/garage/counts/B-1/", "park/garage/counts//L2", "park/garage/counts/B-1/L2//C",
                            "park/garages/counts/B-1/L2", "park/garage/plan/B-1/L2", "park/garage/counts/B 1/L2", ""}) {
    EXPECT_EQ(text(wrong), "none") << wrong;
  }
}

TEST(RelayDocuments, Plans) {
  const std::pair<const char*, const char*> kCases[] = {
      {R"({"zone": "L2/B"})", ""},
      {R"({"name": "Élysée", "zone": "L2", "shows": {"left": ["L2/C", "L3"], "front": []}, "colour": 1})", ""},
      {R"({"zone": "L2", "shows": {"left": ["L2", "L 3"]}})", "\"left\" is no list of zones"},
      {R"({"zone": "L2", "shows": {"group": "L2"}})", "\"group\" is no list of zones"},
      {R"({"zone": "L2", "shows": {"right": null}})", "\"right\" is no list of zones"},
      {R"({"zone": "L2", "shows": []})", "\"shows\" is no object"},
      {R"({"zone": "L2/"})", "\"zone\" is no zone"},
      {R"({"name": "x"})", "\"zone\" is no zone"},
      {R"({"name": 3, "zone": "L2"})", "\"name\" is no text"},
      {R"({"zone": "L2",})", "no JSON object"},
  };
  for (const auto& [text, expected] : kCases) {
    std::string problem;
    const bool good = ParsePlan(text, &problem).has_value();
    EXPECT_EQ(good, problem.empty()) << text;
    EXPECT_EQ(problem, expected) << text;
  }
  std::string problem;
  const auto plan = ParsePlan(kCases[1].first, &problem);
  EXPECT_EQ(plan->shows[bs::kLeft], (std::vector<std::string>{"L2/C", "L3"}));
  EXPECT_TRUE(plan->shows[bs::kFront].empty());
}

TEST(RelayDocuments, Memberships) {
  const char* const no_broker = "\"broker\" is neither mqtt://HOST[:PORT] nor mqtts://HOST[:PORT]";
  const std::string head = R"({"site": "g", "device": "d", "broker": ")";
  const std::pair<std::string, std::string> kCases[] = {
      {head + R"(mqtt://hub"})", "hub:1883 plain"},
      {head + R"(mqtts://hub.example", "user": "u", "ca": "/c", "remote": "off"})", "hub.example:8883 tls"},
      {head + R"(mqtts://198.18.0.1:9", "remote": "configure"})", "198.18.0.1:9 tls"},
      {head + R"(mqtt://[fd00::1]:77"})", "fd00::1:77 plain"},
      {head + "mqtt://hub\"}" + '\0', "hub:1883 plain"},  // with the NUL that others count
      {R"({"broker": ""})", "no site"},
      {"", "it is empty"},
      {"{", "it is no JSON object"},
      {R"({"site": "g", "device": "d"})", "\"broker\" is no text"},
      {head + R"(http://hub"})", no_broker},
      {head + R"(mqtt://"})", no_broker},
      {head + R"(mqtt://hub:0"})", no_broker},
      {head + R"(mqtt://hub:65536"})", no_broker},
      {head + R"(mqtt://hub:12x"})", no_broker},
      {head + R"(mqtt://us@hub"})", no_broker},
      {head + R"(mqtt://hub", "remote": "all"})", "\"remote\" is none of off, read, configure"},
      {head + R"(mqtt://hub", "user": 1})", "\"user\" is no text"},
      {R"({"site": "a b", "device": "d", "broker": "mqtt://h"})", "\"site\" is no name (1 to 32 of A-Z a-z 0-9 _ -)"},
      {R"({"site": "g", "broker": "mqtt://h"})", "\"device\" is no name (1 to 32 of A-Z a-z 0-9 _ -)"},
  };
  for (const auto& [text, expected] : kCases) {
    std::string problem;
    const auto to = ParseMembership(text, &problem);
    std::string result = problem;
    if (to && to->host.empty()) result = "no site";
    if (to && !to->host.empty()) result = to->host + ":" + std::to_string(to->port) + (to->tls ? " tls" : " plain");
    EXPECT_EQ(result, expected) << text;
  }
}

TEST(RelayDocuments, OwnCountsAreWhatWasNotPushed) {
  const auto own = [](const std::string& body) -> std::string {
    const auto frame = ReadFrame(R"({"type": "frame_changed", "body": )" + body + "}");
    if (!frame) return "unreadable";
    return frame->own ? std::to_string(frame->own->spaces) + "/" + std::to_string(frame->own->free) : "skipped";
  };
  const std::pair<const char*, const char*> kCases[] = {
      {R"({"totle": 3, "free": 1, "cm_dev": null})", "3/1"},
      {R"({"totle": 15, "free": 4, "cm_dev": [{"ip": 1, "tn": 5, "fn": 1}, {"ip": 4, "tn": 7, "fn": 2}]})", "3/1"},
      // Another neighbour reports for these: they are not the relay's.
      {R"({"totle": 15, "free": 4, "cm_dev": [{"ip": 5, "tn": 5, "fn": 1}, {"ip": 0, "tn": 7, "fn": 2}]})", "15/4"},
      {R"({"totle": 3, "free": 1, "cm_dev": [{"ip": 2, "tn": 4, "fn": 1}]})", "skipped"},
      {R"({"totle": 3, "free": 1, "cm_dev": [{"ip": 2, "tn": 3, "fn": 2}]})", "skipped"},
      {R"({"totle": 5, "free": 4, "cm_dev": [{"ip": 2, "tn": 4, "fn": 1}]})", "skipped"},  // 1 space, 3 of it free
      {R"({"totle": 3, "free": 1, "cm_dev": [{"ip": 2, "tn": -4, "fn": 1}]})", "unreadable"},
      {R"({"totle": 3, "cm_dev": null})", "unreadable"},
      {R"({"totle": 3, "free": 1, "cm_dev": 7})", "unreadable"},
      {R"([])", "unreadable"},
  };
  for (const auto& [body, counts] : kCases) EXPECT_EQ(own(body), counts) << body;
  EXPECT_FALSE(ReadFrame(R"({"type": "ledcolor_changed", "body": {"totle": 3, "free": 1}})"));
}

TEST(RelayDocuments, WhatTheSiteMayAsk) {
  const std::tuple<const char*, Remote, int> kCases[] = {
      {R"({"type": "get_bt"})", Remote::kOff, 403},
      {R"({"type": "get_bt"})", Remote::kRead, kAllowed},
      {R"({"type": "quary_controled_log"})", Remote::kRead, kAllowed},
      {R"({"type": "set_bt"})", Remote::kRead, 403},
      {R"({"type": "set_bt"})", Remote::kConfigure, kAllowed},
      {R"({"type": "reset_ibc"})", Remote::kConfigure, kAllowed},
      {R"({"type": "cmd"})", Remote::kConfigure, 403},
      {R"({"type": "check_dev"})", Remote::kConfigure, 403},
      {R"({"type": 3})", Remote::kOff, 400},
      {R"([])", Remote::kConfigure, 400},
      // What one reader takes for a harmless command another may take for this one.
      {R"({"type": "get_bt", "type": "cmd"})", Remote::kConfigure, 400},
      {R"({"type": "get_bt"}{"type": "cmd"})", Remote::kConfigure, 400},
  };
  for (const auto& [text, remote, state] : kCases) EXPECT_EQ(Judge(text, remote).state, state) << text;
  for (const char* topic :
       {"park/g/reply/", "park/g/replying", "park/h/reply/me", "park/g/reply/#", "park/g/reply/+", ""}) {
    EXPECT_FALSE(IsReplyTopic("g", topic)) << topic;
  }
  EXPECT_TRUE(IsReplyTopic("g", "park/g/reply/me/1"));
}

TEST(SiteNames, ZonesAreOneToEightNamesOfOneToThirtyTwoPlainCharacters) {
  const std::string longest(32, 'a');
  const std::tuple<std::string, bool, bool> kRows[] = {
      {"L2", true, true},
      {"", false, false},
      {"L2/B", false, true},
      {"/L2", false, false},
      {"L2/", false, false},
      {"L2//B", false, false},
      {longest, true, true},
      {longest + "a", false, false},
      {"L/" + longest, false, true},
      {"L/" + longest + "a", false, false},
      {"1/2/3/4/5/6/7/8", false, true},
      {"1/2/3/4/5/6/7/8/9", false, false},
      {"AZaz09_-", true, true},
      {"+", false, false},
      {"L2/#", false, false},
      {"L 2", false, false},
      {"Überfahrt", false, false},
      {std::string("L\0B", 3), false, false},
  };
  for (const auto& [text, name, zone] : kRows) {
    EXPECT_EQ(bs::IsSiteName(text), name) << text;
    EXPECT_EQ(bs::IsZone(text), zone) << text;
  }
}

TEST(SiteNames, AZoneHoldsWhatIsBelowItAndNothingBeside) {
  EXPECT_TRUE(bs::IsWithin("L2", "L2") && bs::IsWithin("L2/B", "L2") && bs::IsWithin("L2/B/1", "L2/B"));
  EXPECT_FALSE(bs::IsWithin("L20", "L2") || bs::IsWithin("L2", "L2/B") || bs::IsWithin("L2/BB", "L2/B"));
  EXPECT_EQ(bs::ZoneFilter("garage", "L2/C"), "park/garage/counts/+/L2/C/#");
  EXPECT_EQ(bs::CountsTopic("garage", "L2-C-003", "L2/C"), "park/garage/counts/L2-C-003/L2/C");
}

}  // namespace
}  // namespace relay
