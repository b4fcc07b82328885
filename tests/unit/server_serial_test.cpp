// What the server writes to and hears on the external line, the beacon's start, and pushes from neighbours.
#include "base64.h"
#include "server_fixture.h"

namespace businessserver {
namespace {

std::string Bytes(std::initializer_list<int> bytes) { return std::string(bytes.begin(), bytes.end()); }

std::string Push(uint32_t sender, int pos, uint32_t spaces, uint32_t free) {
  Json::Value push;
  push["s_addr"] = sender;
  push["pos"] = pos;
  push["totle"] = spaces;
  push["free"] = free;
  return StyledText(push);
}

TEST_F(ServerTest, SerialOutputFollowsTheProtocolAndTheHaltFlag) {
  const auto configure = [&](const std::string& body) {
    StateOf("set_ext_ttyio_cfg", body);
    TakeExternal();
  };
  const auto result_writes = [&](const std::string& record) {
    TakeExternal();
    Fake().Deliver(kAvsParkRectChange, record);
    return TakeExternal();
  };
  const std::string occupied = Record(Space(1));
  const std::string frame = Bytes({0xBB, 0x88, 0xBB, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0x33});
  LX_ParkingResult repeat = Space(1, kNoPlate, kTriggerRepeatable);
  repeat.second_flag = 0;
  Run([&] {
    EXPECT_EQ(result_writes(occupied), frame);
    EXPECT_EQ(result_writes(Record(repeat)), "") << "a repeat of a triggered result";
    EXPECT_EQ(result_writes(Record(repeat, {}, Space(1))).size(), frame.size()) << "the spaces behind it go out";
    EXPECT_EQ(StateOf("set_rs485pro_cfg", R"({"pro_cfg":[{"header":"AA"},{"no such":1}]})"), 404);
    EXPECT_EQ(result_writes(occupied), frame) << "nothing of a refused list stays";
    configure(R"({"proto":7,"f_ena":1})");
    EXPECT_EQ(result_writes(occupied), frame) << "an unknown protocol: the configurable frame alone";
    configure(R"({"proto":255})");
    EXPECT_EQ(result_writes(occupied), "");
    configure(R"({"proto":1,"frame1_addr":5,"frame2_addr":6,"frame3_addr":7})");
    EXPECT_EQ(result_writes(Record(Space(1), {}, Space(0))),
              Bytes({0xAA, 4, 5, 1, 0xAA, 0x55}) + Bytes({0xAA, 4, 7, 2, 0xAB, 0x55}));
    configure(R"({"proto":0,"r_ena":1,"r_addr":3})");
    EXPECT_EQ(result_writes(occupied), Bytes({0xAA, 3, 0x17, 1, '0', 0x8C})) << "a display has the line to itself";
    configure(R"({"proto":0,"f_ena":1,"f_addr":1,"l_ena":1,"l_addr":2})");
    const std::string displays = Bytes({0xAA, 1, 0x17, 1, '1', 0x8F}) + Bytes({0xAA, 2, 0x17, 1, '0', 0x8D});
    EXPECT_EQ(result_writes(Record(Space(0))), displays) << "own free spaces in front, nothing on the left";
    Fake().Advance(4000);
    EXPECT_EQ(TakeExternal().substr(0, displays.size()), displays) << "refreshed by the tick";
    Fake().Deliver(kBusBroadlistenMessage, R"({"type":"set_ttyio_halt","body":{"halt":1}})");
    Fake().Advance(8000);
    EXPECT_EQ(result_writes(occupied), "");
    Fake().Deliver(kBusBroadlistenMessage, R"({"type":"set_ttyio_halt"})");  // a missing value clears it
    Fake().Advance(4000);
    EXPECT_NE(TakeExternal(), "");
  });
}

TEST_F(ServerTest, OldProtocolDocumentIsCompleted) {
  Fake().store[KeyOf(kExtTtyio)] = R"({"proto":1,"frame1_addr":5})";
  Run([&] {
    EXPECT_EQ(Parsed(Fake().store[KeyOf(kExtTtyio)]),
              Parsed(R"({"proto":1,"frame1_addr":0,"frame2_addr":0,"frame3_addr":0})"));
  });
}

TEST_F(ServerTest, SendsOnlyBytesThatItWasGiven) {
  const std::tuple<const char*, const char*, std::string> rows[] = {
      {"as counted", R"({"data":"AQID","data_len":3})", Bytes({1, 2, 3})},
      {"fewer than given", R"({"data":"AQID","data_len":2})", Bytes({1, 2})},
      {"more than given", R"({"data":"AQID","data_len":2000000000})", Bytes({1, 2, 3})},
      {"negative", R"({"data":"AQID","data_len":-1})", ""},
      {"not base64", R"({"data":"*QID","data_len":3})", ""},
      {"count is a text", R"({"data":"AQID","data_len":"3"})", ""},
      {"nothing", "{}", ""},
  };
  Run([&] {
    for (const auto& [name, body, sent] : rows) {
      TakeExternal();
      Fake().Deliver(kBusBroadlistenMessage, std::string("{\"type\":\"send_ttyio_data\",\"body\":") + body + "}");
      EXPECT_EQ(TakeExternal(), sent) << name;
    }
  });
}

TEST_F(ServerTest, RefusesMoreThanTenSecondsOfTheLine) {
  Run([&] {
    const auto send = [](int bytes) {
      const std::string data(static_cast<size_t>(bytes), 'x');
      Fake().Deliver(kBusBroadlistenMessage, R"({"type":"send_ttyio_data","body":{"data":")" +
                                                 lxbase::Base64::EncodeFromArray(data.data(), data.size()) +
                                                 R"(","data_len":)" + std::to_string(bytes) + "}}");
    };
    TakeExternal();
    send(9611);
    EXPECT_EQ(TakeExternal(), "");
    EXPECT_TRUE(Fake().Logged(3, "send_ttyio_data: 9611 bytes take the line 10011 ms, nothing sent"));
    Request(R"({"type":"set_ttyio_cfg","body":{"ttyionum":2,"baudrate":300,"checkbit":0,"databit":8,"stopbit":1}})");
    send(300);
    EXPECT_EQ(TakeExternal().size(), 300u);
    send(301);
    EXPECT_EQ(TakeExternal(), "") << "the same bytes take longer on a slower line";
  });
}

TEST_F(ServerTest, BroadcastsReceivedBursts) {
  Run([&] {
    external_.Say(Bytes({0, 255, 16}));
    Fake().Advance(10);
    const auto bursts = Broadcasts("ttyio_data_bro");
    ASSERT_EQ(bursts.size(), 1u);
    EXPECT_EQ(bursts[0], Parsed(R"({"data":"AP8Q","data_len":3})"));
  });
}

TEST_F(ServerTest, IncompleteLineSettingsAreReplaced) {
  for (const char* text : {R"({"ttyionum":2,"baudrate":"9600","checkbit":0,"databit":8,"stopbit":1})", "{}", "[]"}) {
    ResetFake();
    Fake().store[KeyOf(kDeviceTtyio)] = text;
    Run([&] { EXPECT_EQ(Fake().store[KeyOf(kDeviceTtyio)], DefaultOf(kDeviceTtyio)) << text; });
    EXPECT_EQ(Parsed(Fake().unreadable[KeyOf(kDeviceTtyio)]), Parsed(text)) << "what an owner stored is kept";
  }
  ResetFake();
  const char* const unusable = R"({"ttyionum":2,"baudrate":9600,"checkbit":0,"databit":9,"stopbit":1})";
  Fake().store[KeyOf(kDeviceTtyio)] = unusable;
  Fake().store[KeyOf(kRs485pro)] = R"({"pro_cfg":7})";
  Run([&] {
    EXPECT_EQ(Fake().store[KeyOf(kRs485pro)], DefaultOf(kRs485pro));
    EXPECT_EQ(Parsed(Fake().unreadable[KeyOf(kRs485pro)]), Parsed(R"({"pro_cfg":7})"));
    Fake().Deliver(kAvsParkRectChange, Record(Space(1)));
    EXPECT_EQ(TakeExternal().size(), 21u) << "and the default is what is sent";
    EXPECT_TRUE(Fake().Logged(3, "Unsupported data size"));
    EXPECT_EQ(Fake().store[KeyOf(kDeviceTtyio)], unusable) << "well formed: not corrected";
  });
}

TEST_F(ServerTest, TellsTheBeaconItsSettingsAtStart) {
  Fake().store[KeyOf(kSysDeviceName)] = R"({"devicename":"gate 7"})";
  Run([&] {
    EXPECT_EQ(TakeBeacon(), "DTM:NAM-gate 7\r\nDTM:INT-500\r\nDTM:TXP-4\r\nDTM:MEA--55\r\n");
    Fake().Deliver(kSysDeviceNameChanged, "");
    EXPECT_EQ(TakeBeacon(), "DTM:NAM-gate 7\r\n");
    Request(R"({"type":"set_bt","body":{"uuid":"short","major":70000}})");
    EXPECT_EQ(TakeBeacon(), "DTM:UID-0x73686F72740000000000000000000000\r\nDTM:MAJ-0x1170\r\nDTM:INF\r\n");
    Request(R"({"type":"set_bt","body":{"uuid":"0123456789abcdef and more","minor":1}})");
    EXPECT_EQ(TakeBeacon(), "DTM:UID-0x30313233343536373839616263646566\r\nDTM:MIN-0x0001\r\nDTM:INF\r\n");
    EXPECT_EQ(Parsed(Fake().store[KeyOf(kSysBlueTooth)]), Parsed(R"({"uuid":"","major":0,"minor":0})"));
  });
}

TEST_F(ServerTest, NeighboursCountUntilTheyFallSilent) {
  Run([&] {
    Fake().Deliver(kAvsParkRectChange, Record(Space(0), Space(1)));
    for (uint32_t pos = 0; pos < 4; ++pos) Fake().Deliver(kBusNetPush, Push(100 + pos, pos, 20 + 10 * pos, 3 + pos));
    EXPECT_EQ(BodyOf("get_net_status"),
              Parsed(R"({"totle":142,"free":19,"n_totles":22,"n_frees":4,"l_totles":30,"l_frees":4,
                         "r_totles":40,"r_frees":5,"f_totles":50,"f_frees":6})"));
    Fake().Advance(150000);
    EXPECT_EQ(BodyOf("get_frame_status"), Parsed(R"({"totle":2,"free":1})")) << "this device's own push keeps it alive";
  });
}

TEST_F(ServerTest, DropsPushesThatAreNone) {
  const std::string wrong_type = R"({"s_addr":9,"totle":{},"free":0,"pos":0})";
  Run([&] {
    Fake().sent.clear();
    for (const std::string& text :
         {Push(0, 1, 1, 1), Push(kLoopbackAddress, 1, 1, 1), std::string("{"), wrong_type, std::string("[]"),
          std::string(R"({"s_addr":"x"})"), std::string(R"({"s_addr":9,"cm_dev":[{"ip":[]}]})")}) {
      Fake().Deliver(kBusNetPush, text);
      EXPECT_TRUE(Fake().sent.empty()) << text;
    }
  });
}

TEST_F(ServerTest, ImplausibleCountsClearTheLists) {
  Fake().store[KeyOf(kSysDeviceInfo)] = R"({"parking_num":0})";
  Fake().store[KeyOf(kExtTtyio)] = R"({"proto":0,"l_ena":1})";
  // Makes a broadcast of 65493 bytes with 1189 devices, and of 65548 with one more.
  const auto listing = [](Json::ArrayIndex devices) {
    Json::Value push = Parsed(Push(10, 1, 3, 1));
    for (Json::ArrayIndex i = 0; i < devices; ++i) push["cm_dev"][i]["ip"] = 1000 + i;
    return StyledText(push);
  };
  const std::pair<std::string, std::string> rows[] = {
      {listing(1189), listing(1190)},
      {Push(10, 1, 0x100000, 0x100000), Push(10, 1, 0x100001, 0)},
      {Push(11, 1, 0, 0x100000), Push(11, 1, 0, 0x100001)},
  };
  Run([&] {
    for (const auto& [most, more] : rows) {
      Fake().sent.clear();
      Fake().Deliver(kBusNetPush, most);
      EXPECT_NE(TakeExternal(), "");
      const auto bodies = Broadcasts("frame_changed");
      ASSERT_EQ(bodies.size(), 1u) << most.substr(0, 60);
      EXPECT_EQ(bodies[0]["totle"], Parsed(most)["totle"]) << "nothing else is left in the lists";
      EXPECT_EQ(bodies[0]["cm_dev"].size(), Parsed(most)["cm_dev"].size());
      Fake().Deliver(kBusNetPush, more);
      EXPECT_EQ(TakeExternal(), "") << "the displays keep what they show";
      ASSERT_EQ(Fake().sent.size(), 1u) << more.substr(0, 60);
      EXPECT_EQ(Fake().sent[0].type, kHttpRequestMessageRoot) << more.substr(0, 60);
      EXPECT_EQ(Parsed(Fake().sent[0].data), Parsed(R"({"type":"ClearAllDestAddr"})"));
    }
  });
}

}  // namespace
}  // namespace businessserver
