// The state of a site by what its hub says, with a clock that the test turns.
#include <gtest/gtest.h>

#include "site/view.h"

namespace {

using site::View;
using std::chrono::seconds;

constexpr char kOk[] = R"({"online":true,"daemon":"ok","plan":"ok","spaces":3,"free":1})";

class SiteView : public testing::Test {
 protected:
  void Say(const std::string& rest, const std::string& payload, bool kept = false) {
    view_.Take("park/g/" + rest, payload, kept, now_);
  }
  site::DeviceRow Row(const std::string& device) const {
    for (const site::DeviceRow& row : view_.Devices(now_)) {
      if (row.device == device) return row;
    }
    ADD_FAILURE() << "there is no " << device;
    return {};
  }
  std::string State(const std::string& device) const { return StateName(Row(device).state); }
  // "1 of 3 in 1": free, spaces and devices of a zone.
  std::string Zone(const std::string& zone) const {
    const auto zones = view_.Zones(now_);
    if (zones.count(zone) == 0) return "none";
    const site::ZoneRow& row = zones.at(zone);
    return std::to_string(row.sum.free) + " of " + std::to_string(row.sum.spaces) + " in " +
           std::to_string(row.devices);
  }

  View view_{"g"};
  View::Clock::time_point now_{seconds(1000)};
};

TEST_F(SiteView, TheFirstStateThatAppliesIsTheState) {
  const std::pair<const char*, const char*> kRows[] = {
      {"", "offline"},
      {R"({"online":false})", "offline"},
      {R"({"online":true,"daemon":"silent","plan":"unreadable"})", "silent"},
      {R"({"online":true,"daemon":"implausible","plan":"none","spaces":3,"free":1})", "implausible"},
      {R"({"online":true,"daemon":"ok","plan":"unreadable","spaces":3,"free":1})", "plan unreadable"},
      {R"({"online":true,"daemon":"ok","plan":"none","spaces":3,"free":1})", "no plan"},
      {R"({"online":true,"daemon":"ok","plan":"ok"})", "ok"},  // it has not yet seen anything
      {kOk, "silent"},                                         // it has, and says nothing of it
  };
  Say("plan/A", R"({"zone":"L1"})", true);
  for (const auto& [health, state] : kRows) {
    Say("health/A", health);
    EXPECT_EQ(State("A"), state) << health;
  }
  Say("counts/A/L1", R"({"spaces":3,"free":1})");
  EXPECT_EQ(State("A"), "ok");
  now_ += seconds(69);
  Say("counts/A/L1", R"({"spaces":3,"free":1})");
  now_ += seconds(2);
  EXPECT_EQ(State("A"), "silent") << "nothing of its health for 71 s";
}

TEST_F(SiteView, OnlyFreshCountsCount) {
  Say("counts/A/L1/A", R"({"spaces":3,"free":1})");
  Say("counts/B/L1/B", R"({"spaces":2.0,"free":2})", true);
  Say("health/C", kOk, true);
  EXPECT_EQ(Zone("L1"), "3 of 5 in 2");
  EXPECT_EQ(Zone("L1/B"), "2 of 2 in 1");
  now_ += seconds(29);
  EXPECT_EQ(Zone("L1"), "3 of 5 in 2");
  now_ += seconds(1);
  EXPECT_EQ(Zone("L1"), "1 of 3 in 1") << "one that the hub had kept is good for 30 s";
  Say("counts/A/L1/A", R"({"spaces":3,"free":0})", true);
  EXPECT_EQ(Zone("L1"), "1 of 3 in 1") << "a kept one shortens nothing that was heard live";
  now_ += seconds(40);
  EXPECT_EQ(Zone("L1"), "none");
  EXPECT_EQ(Row("A").last->free, 1u);
  EXPECT_FALSE(Row("A").counts);

  Say("counts/A/L1/A", R"({"spaces":3,"free":1})");
  Say("counts/A/L2", R"({"spaces":3,"free":3})");
  Say("counts/A/L1/A", "");  // moved: what is cleared late is not its latest
  EXPECT_EQ(Zone("L2"), "3 of 3 in 1");
  EXPECT_EQ(Zone("L1"), "none");
  Say("counts/A/L2", "");
  EXPECT_EQ(Zone("L2"), "none");
  EXPECT_EQ(Row("C").last->spaces, 3u);
}

TEST_F(SiteView, WhatIsMalformedChangesNothing) {
  Say("plan/A", R"({"zone":"L1","name":"North"})");
  Say("counts/A/L1", R"({"spaces":3,"free":1})");
  Say("health/A", kOk);
  for (const char* counts :
       {"x", "[]", R"({"spaces":3})", R"({"spaces":3,"free":4})", R"({"spaces":-1,"free":-1})",
        R"({"spaces":1048577,"free":0})", R"({"spaces":"3","free":1})", R"({"spaces":3.5,"free":1})"}) {
    Say("counts/A/L1", counts);
  }
  Say("counts/A/L1", R"({"spaces":9,"free":1,"x":")" + std::string(4096, 'x') + R"("})");
  for (const char* topic : {"counts/A", "counts/A/L 1", "counts/A/1/2/3/4/5/6/7/8/9", "counts/A B/L1", "health/A/B"}) {
    Say(topic, R"({"spaces":9,"free":1,"online":false})");
  }
  Say("health/A", R"({"online":"no"})");
  Say("plan/A", R"({"zone":7})");
  view_.Take("park/other/health/A", R"({"online":false})", false, now_);
  EXPECT_EQ(view_.dropped(), 15u);
  EXPECT_EQ(State("A"), "ok");
  EXPECT_EQ(Row("A").name, "North");
  EXPECT_EQ(Zone("L1"), "1 of 3 in 1");
  EXPECT_EQ(view_.Devices(now_).size(), 1u);
  Say("plan/A", "");
  Say("health/A", "");
  EXPECT_EQ(State("A"), "offline");
}

TEST_F(SiteView, WhatIsWrongStandsFirst) {
  Say("plan/A", R"({"zone":"L1"})");
  Say("plan/Z", R"({"zone":"L1","name":"Tor"})");
  Say("counts/A/L1", R"({"spaces":3,"free":1})");
  Say("health/A", R"({"online":true,"daemon":"ok","plan":"ok","spaces":3,"free":1,"rejected":2,"duplicate":true,)"
                  R"("shows":{"left":{"spaces":9,"free":4,"missing":["B","C"],"missing_count":5},)"
                  R"("right":{"spaces":1,"free":0,"missing":["D"],"missing_count":1}}})");
  EXPECT_EQ(StatusText(view_, now_),
            "g, 2 devices: 1 offline, 1 ok\n"
            "offline  Z  L1    Tor\n"
            "ok       A  L1  1 of 3 free; two relays bear this name; left misses B, C and 3 more; right misses D\n"
            "\nL1  1 of 3 free, 1 device\n");
  EXPECT_EQ(site::HealthWords(view_.Health("A")),
            "daemon ok, plan ok, 1 of 3 free; left 4 of 9 free; right 0 of 1 free; two relays bear this name; "
            "left misses B, C and 3 more; right misses D");
  const std::string metrics = OpenMetrics(view_, now_);
  for (const char* line : {"\npark_device_state{site=\"g\",device=\"Z\",park_device_state=\"offline\"} 1\n",
                           "\npark_device_rejected_messages_total{site=\"g\",device=\"A\"} 2\n",
                           "\npark_device_missing_sources{site=\"g\",device=\"A\",direction=\"left\"} 5\n",
                           "\npark_zone_spaces{site=\"g\",zone=\"L1\"} 3\n", "\n# EOF\n"}) {
    EXPECT_NE(metrics.find(line), std::string::npos) << line << metrics;
  }
  EXPECT_EQ(metrics.find("park_device_spaces{site=\"g\",device=\"Z\""), std::string::npos);
}

}  // namespace
