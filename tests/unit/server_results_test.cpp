// Recognition results: intake, the republished copy, the LED, the counts.
#include <cstring>

#include "server_fixture.h"

namespace businessserver {
namespace {

TEST_F(ServerTest, DropsResultsOfTheWrongSize) {
  Run([&] {
    for (const size_t size : {0u, 967u, 969u}) {
      Fake().sent.clear();
      Fake().log.clear();
      Fake().Deliver(kAvsSimulatorTrigger, std::string(size, '\0'));
      EXPECT_TRUE(Fake().Logged(3, "dmp->data_size != " + std::to_string(size)));
      EXPECT_TRUE(Fake().Logged(3, "sizeof(LX_Parking_Result_Param) != 968"));
      EXPECT_TRUE(Fake().sent.empty());
    }
  });
}

TEST_F(ServerTest, ChoosesTheStateAndItsColor) {
  LX_ParkingResult alarm = Space(1);
  alarm.occupy_line = 1;
  LX_ParkingResult crossed_two = Space(1);
  crossed_two.occupy_line = 2;
  LX_ParkingResult invalid_free = {};
  // State and LED register, of the default colours 1, 0 and 3.
  const std::tuple<const char*, std::string, int, uint32_t> rows[] = {
      {"first free", Record(Space(0), Space(1), Space(1)), 0, 8},
      {"all occupied", Record(Space(1), Space(2), Space(3)), 1, 4},
      {"alarm in the third wins over a free space", Record(Space(0), Space(1), alarm), 3, 255},
      {"a line value of two is no alarm", Record(Space(1), Space(1), crossed_two), 1, 4},
      {"last free", Record(Space(1), Space(1), Space(0)), 0, 8},
      {"nothing valid", Record(invalid_free, invalid_free, invalid_free), 1, 4},
  };
  Run([&] {
    int previous = 0;
    for (const auto& [name, record, state, led_register] : rows) {
      Fake().sent.clear();
      for (int repeat = 0; repeat < 2; ++repeat) Fake().Deliver(kAvsParkRectChange, record);
      EXPECT_EQ(LedRegister(), led_register) << name;
      const auto sent = Fake().sent;
      const auto states = Broadcasts("framestatus_changed");
      ASSERT_EQ(states.size(), state != previous ? 1u : 0u) << name;
      for (const Json::Value& told : states) EXPECT_EQ(told["frame_status"].asInt(), state) << name;
      Fake().sent = sent;
      EXPECT_EQ(Broadcasts("ledcolor_changed").size(), states.size()) << name;
      previous = state;
    }
  });
}

TEST_F(ServerTest, UnusableColorConfigurationCostsTheLampOnly) {
  for (const char* text : {R"({"externalcontrol_enable":"x"})", R"({"parkingledcolorcfg":7})", "[]"}) {
    ResetFake();
    Fake().store[KeyOf(kBusLedColor)] = text;
    Run([&] {
      Fake().sent.clear();
      Fake().Deliver(kAvsSimulatorTrigger, Record(Space(1)));
      EXPECT_NE(Fake().LastSent(kBusSimulatorTrigger), nullptr) << text;
      EXPECT_EQ(BodyOf("get_frame_status")["totle"].asUInt(), 1u) << text;
      EXPECT_NE(TakeExternal(), "") << text;
      EXPECT_EQ(StateOf("set_parking_color_cfg", text), 404) << text;
      EXPECT_EQ(Fake().store[KeyOf(kBusLedColor)], StyledText(Parsed(text))) << "stored all the same";
      const char* const good = R"({"parkingledcolorcfg":{"parkingoccupyledcolor":3}})";
      EXPECT_EQ(StateOf("set_parking_color_cfg", good), 200) << text;
      EXPECT_EQ(LedRegister(), 255u) << text;
    });
  }
}

TEST_F(ServerTest, CountsItsSpacesInTheOwnGroup) {
  Fake().store[KeyOf(kDevPos)] = R"({"pos":2})";
  Run([&] {
    EXPECT_EQ(BodyOf("get_net_status")["r_totles"].asUInt(), 3u) << "before the first result: as configured";
    Fake().Deliver(kAvsParkRectChange, Record(Space(0), Space(1)));
    const auto broadcasts = Broadcasts("frame_changed");
    ASSERT_FALSE(broadcasts.empty());
    EXPECT_EQ(broadcasts.back(), Parsed(R"({"totle":2,"free":1,"cm_dev":null})"));
  });
}

TEST_F(ServerTest, RepublishesUnlessALineValueAloneMoved) {
  LX_ParkingResult repeat = Space(1, "A12345", kTriggerRepeatable);
  LX_ParkingResult moved = repeat;
  moved.occupy_line = 5;
  LX_ParkingResult other_plate = moved;
  other_plate.plate[0] = 'B';
  LX_ParkingResult other_trigger = moved;
  other_trigger.trigger = 2;
  const std::tuple<const char*, LX_ParkingResult, bool> rows[] = {
      {"first", repeat, true},
      {"identical", repeat, true},
      {"only the line value moved", moved, false},
      {"another plate too", other_plate, true},
      {"first again", repeat, true},
      {"another trigger", other_trigger, true},
  };
  Run([&] {
    for (const auto& [name, result, sent] : rows) {
      Fake().sent.clear();
      Fake().Deliver(kAvsSimulatorTrigger, Record(result));
      EXPECT_EQ(Fake().LastSent(kBusSimulatorTrigger) != nullptr, sent) << name;
      Fake().Deliver(kAvsParkRectChange, Record(result));
    }
    Fake().sent.clear();
    Fake().Deliver(kAvsParkRectChange, Record(Space(0, "C")));
    EXPECT_EQ(Fake().LastSent(kBusSimulatorTrigger), nullptr) << "changes are not republished";
  });
}

TEST_F(ServerTest, RepublishedCopyFollowsTheFields) {
  Run([&] {
    LX_ParkingResult arrived = Space(1, "A12345");
    memset(arrived.unread_16, 0xAB, sizeof arrived.unread_16);
    memset(arrived.unread_74, 0xCD, sizeof arrived.unread_74);
    arrived.head_confidence = 88;
    strcpy(arrived.space_name, "P1");
    strcpy(arrived.extra_text, "first");
    std::string record = Record(arrived);
    memset(record.data() + 840, 'e', 128);  // a text without terminator
    Fake().Deliver(kAvsSimulatorTrigger, record);
    LX_ParkingResult left = Space(0, "_");
    left.trigger = kTriggerRepeatable;
    strcpy(left.extra_text, "second");
    LX_ParkingResult repeat = left;
    repeat.second_flag = 0;
    strcpy(repeat.extra_text, "third");
    const std::string records[] = {record, Record(left), Record(repeat), Record({})};
    // A freed space keeps the plate; a triggered repeat keeps the text; an invalid space has no plate.
    const std::pair<const char*, const char*> rows[] = {
        {"A12345", "first"}, {"A12345", "second"}, {"_", "second"}, {kNoPlate, ""}};
    for (size_t i = 0; i < 4; ++i) {
      Fake().sent.clear();
      Fake().Deliver(kAvsSimulatorTrigger, records[i]);
      const auto* sent = Fake().LastSent(kBusSimulatorTrigger);
      ASSERT_NE(sent, nullptr) << i;
      ASSERT_EQ(sent->data.size(), 968u);
      LX_Parking_Result_Param copy;
      memcpy(&copy, sent->data.data(), sizeof copy);
      EXPECT_EQ(FieldText(copy.spaces[0].plate), rows[i].first) << i;
      EXPECT_EQ(FieldText(copy.spaces[0].extra_text), rows[i].second) << i;
      if (i == 0) {
        EXPECT_EQ(sent->data.substr(0, 152), record.substr(0, 152)) << "carried along unchanged";
        EXPECT_EQ(FieldText(copy.extra_text), std::string(128, 'e'));
      }
      Fake().Deliver(kBusRequestMessage, R"({"type":"get_latest_ivsresult"})");
      EXPECT_EQ(Fake().replies.back().data, sent->data) << i;
    }
    EXPECT_EQ(Fake().replies.size(), 4u);
  });
}

TEST_F(ServerTest, CountsWatchedSpacesAtStart) {
  const struct {
    const char *name, *area, *info;
    uint32_t spaces, led_register;
  } rows[] = {
      {"neither known", nullptr, nullptr, 3, 8},
      {"device information", nullptr, R"({"parking_num":2})", 2, 8},
      {"device information, capped", nullptr, R"({"parking_num":5})", 3, 8},
      {"areas first", R"({"parkingareacfg":{"parkingframe":[{"parkingframeenable":1},{"parkingframeenable":0}]}})",
       R"({"parking_num":2})", 1, 8},
      {"no area", R"({"parkingareacfg":{"parkingframe":[]}})", nullptr, 0, 4},
  };
  for (const auto& row : rows) {
    ResetFake();
    if (row.area != nullptr) Fake().store[KeyOf(kAlgAreaPark)] = row.area;
    if (row.info != nullptr) Fake().store[KeyOf(kSysDeviceInfo)] = row.info;
    Run([&] {
      EXPECT_EQ(LedRegister(), row.led_register) << row.name;
      const auto sent = Fake().sent;
      EXPECT_EQ(Broadcasts("ledcolor_changed").size(), row.spaces == 0 ? 1u : 0u) << row.name;
      Fake().sent = sent;
      EXPECT_EQ(Broadcasts("framestatus_changed").size(), 0u) << row.name;
      const Json::Value counts = BodyOf("get_frame_status");
      EXPECT_EQ(counts["totle"].asUInt(), row.spaces) << row.name;
      EXPECT_EQ(counts["free"].asUInt(), row.spaces) << row.name;
    });
  }
}

}  // namespace
}  // namespace businessserver
