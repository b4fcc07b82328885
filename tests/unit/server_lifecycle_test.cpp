// Start-up order, the documents a fresh store ends up with, the watchdog tick, routing and reconnection.
#include "protocol/commands.h"
#include "server_fixture.h"

// The frame builder is never released by contract; every other leak counts.
extern "C" const char* __lsan_default_suppressions() { return "leak:businessserver::BusinessServer::BusinessServer\n"; }

namespace businessserver {
namespace {

TEST_F(ServerTest, StartsInTheOrderThatTheDeviceReliesOn) {
  Run([] {});
  std::string calls;
  for (const std::string& call : Fake().calls) calls += call + " ";
  EXPECT_EQ(calls,
            "RegisterWatchDogKey(bus,3,20) Kvdb_Start(127.0.0.1,5299) DpClient_Init(127.0.0.1,5291) DpClient_Start(0) "
            "DpClient_CreatePollHandle DpClient_HdlAddListenMessage DpClient_Stop Kvdb_Stop ");
  const std::vector<std::string> expected_types = {
      "AVS_SIMULATOR_TRIGGER",       "AVS_PARK_RECT_CHANGE", "BUS_BROADLISTEN_MESSAGE", "SYS_DEVICE_NAME_CHANGED",
      "HTTP_BROADCAST_MESSAGE_ROOT", "BUS_REQUEST_MESSAGE",  "BUS_EXT_REQUEST_MESSAGE", "BUS_NET_PUSH"};
  ASSERT_EQ(Fake().subscriptions.size(), 1u);
  EXPECT_EQ(Fake().subscriptions[0], expected_types);

  std::vector<std::string> expected_reads;
  for (const StoredDocument& stored :
       {kDeviceTtyio, kEncCfg, kExtTtyio, kIbcBroper, kIbcPower, kIbcTxpower, kSysDeviceName, kDevPos, kBusLedColor,
        kAlgAreaPark, kSysDeviceInfo, kRs485pro, kDevCtrlMdl, kControledLog}) {
    expected_reads.push_back(KeyOf(stored));
  }
  EXPECT_EQ(Fake().store_reads, expected_reads);
}

TEST_F(ServerTest, FreshStoreReceivesTheDefaultsUnderTheirExactKeys) {
  Run([] {});
  std::map<std::string, std::string> expected;
  for (const StoredDocument& stored : {kDeviceTtyio, kEncCfg, kExtTtyio, kIbcBroper, kIbcPower, kIbcTxpower, kDevPos,
                                       kBusLedColor, kRs485pro, kDevCtrlMdl}) {
    expected[KeyOf(stored)] = DefaultOf(stored);
  }
  expected["device_controled_log_value"] = "\t{\t\t\"log_index\" : 0\t}";
  EXPECT_EQ(Fake().store, expected);
  EXPECT_EQ(Fake().store[KeyOf(kDevPos)], std::string("\t{\t\t\"pos\" : 0\t}", 16)) << "its NUL counted";
  EXPECT_EQ(Fake().store[KeyOf(kDeviceTtyio)].size(), 90u);
  for (const int none : {-1, kNoDefault}) EXPECT_EQ(DefaultDocument(none), "") << none;
}

TEST_F(ServerTest, StartsWithoutStoreAndShowsTheDefaultColor) {
  Fake().store_down = true;
  Run([&] { EXPECT_EQ(LedRegister(), 8u); });
}

// Whatever another process left in the store, the device comes up.
TEST_F(ServerTest, StartsOnUnusableDocuments) {
  for (const char* text :
       {"", "abc", "[]", "7", "null", "{\"time\":{},\"power\":\"x\",\"model\":[],\"pos\":-1}",
        "{\"proto\":\"x\",\"pro_cfg\":7,\"level\":-1,\"externalcontrol_enable\":\"x\",\"logs\":3}"}) {
    ResetFake();
    for (const StoredDocument* stored : kStoredDocuments) Fake().store[KeyOf(*stored)] = text;
    Run([&] { EXPECT_EQ(Request(R"({"type":"get_frame_status"})")["state"].asInt(), 200) << text; });
    EXPECT_TRUE(Fake().Logged(1, "Start While")) << text;
  }
}

TEST_F(ServerTest, TickFeedsTheWatchdogAndPushesEveryNinthTime) {
  Run([&] {
    Fake().Advance(0);  // the first tick comes at once
    EXPECT_EQ(Fake().feedings, 1);
    Broadcasts("");
    Fake().Advance(4000 * 7);  // ticks 2 to 8
    EXPECT_EQ(Fake().feedings, 8);
    EXPECT_EQ(Broadcasts("frame_changed").size(), 0u);
    Fake().Advance(4000);
    EXPECT_EQ(Broadcasts("frame_changed").size(), 1u);
    Fake().Advance(4000 * 9);
    EXPECT_EQ(Broadcasts("frame_changed").size(), 1u);
  });
}

TEST_F(ServerTest, RestartsTheSiblingsAfterADayWithoutTriggeredResults) {
  constexpr uint64_t kHour = 3600 * 1000;
  const std::vector<std::string> expected = {"killall watchdog", "killall cpulimit", "killall alg_proc",
                                             "sleep 1000000",    "./alg_proc &",     "./cpulimit -l 40  -e alg_proc &",
                                             "./watchdog -v 2 &"};
  Run([&] {
    Fake().Advance(23 * kHour, 1000);
    Fake().Deliver(kAvsSimulatorTrigger, Record(Space(1)));
    Fake().shell.clear();
    for (int hour = 0; hour < 23; ++hour) {
      Fake().Advance(kHour, 1000);
      Fake().Deliver(kAvsParkRectChange, Record(Space(1)));  // these do not count
    }
    EXPECT_TRUE(Fake().shell.empty());
    Fake().Advance(2 * kHour, 1000);
    EXPECT_EQ(Fake().shell, expected);
  });
}

TEST_F(ServerTest, SubscribesAgainOnlyAfterASuccessfulReconnection) {
  Run([] {
    FakePlatform& fake = Fake();
    fake.on_status(nullptr, 100, fake.user);
    EXPECT_EQ(fake.reconnects, 0);
    fake.reconnect_result = -1;
    fake.on_status(nullptr, 101, fake.user);
    EXPECT_EQ(fake.subscriptions.size(), 1u);
    fake.reconnect_result = 1;
    fake.on_status(nullptr, 101, fake.user);
    ASSERT_EQ(fake.subscriptions.size(), 2u);
    EXPECT_EQ(fake.subscriptions[0], fake.subscriptions[1]);
  });
}

TEST_F(ServerTest, LogsAndDropsUnknownTypes) {
  Run([] {
    Fake().log.clear();
    Fake().Deliver("NOBODY_LISTENS", std::string("text\0hidden", 11));
    Fake().Deliver(std::string(64, 'X'), "no terminator in the name");
    ASSERT_EQ(Fake().log.size(), 4u);
    EXPECT_EQ(Fake().log[0].text, "NOBODY_LISTENS");
    EXPECT_EQ(Fake().log[1].text, "text");
    EXPECT_EQ(Fake().log[2].text, std::string(64, 'X'));
  });
}

TEST_F(ServerTest, HandlersDropWhatTheyCannotRead) {
  const std::string deep(100000, '[');
  Run([&] {
    for (const char* type : {kBusBroadlistenMessage, kHttpBroadcastMessageRoot}) {
      for (const std::string& text : {std::string("{"), std::string(), deep}) {
        Fake().log.clear();
        Fake().sent.clear();
        Fake().Deliver(type, text);
        EXPECT_TRUE(Fake().Logged(3, "OnDpListenMessage Data is not Json")) << type << text.substr(0, 9);
        EXPECT_TRUE(Fake().sent.empty()) << type << text.substr(0, 9);
      }
    }
    for (const char* text : {"[1]", "7", R"({"type":{}})", R"({"type":"set_ttyio_halt","body":{"halt":"x"}})"}) {
      Fake().log.clear();
      Fake().Deliver(kBusBroadlistenMessage, text);
      EXPECT_EQ(Fake().log.back().level, 3) << text;
    }
    Fake().sent.clear();
    Fake().Deliver(kHttpBroadcastMessageRoot, "{}");
    EXPECT_EQ(Broadcasts("frame_changed").size(), 1u);
  });
}

// A store that is away for the first so many calls: it comes back between any reading and what follows it, at the start
// and in a flood of requests.
TEST_F(ServerTest, NoDefaultTakesThePlaceOfADocumentThatWasNotRead) {
  const std::string owners = R"({"ttyionum":2,"baudrate":1200,"checkbit":0,"databit":8,"stopbit":1,"owner":1,)"
                             R"("pro_cfg":[{"end":"33"}]})";
  for (int refusals = 1; refusals < 80; ++refusals) {
    ResetFake();
    for (const StoredDocument* stored : kStoredDocuments) {
      if (stored->default_index != kNoDefault) Fake().store[KeyOf(*stored)] = owners;
    }
    Fake().store[KeyOf(kExtTtyio)] = R"({"proto":255,"frame1_addr":1,"frame2_addr":2,"frame3_addr":3})";
    const auto documents = Fake().store;
    Fake().store_refusals = refusals;
    Run([&] {
      for (const Command& command : kCommands) {
        if (command.effect != CommandEffect::kReads || command.document == nullptr) continue;
        for (int i = 0; i < 4; ++i) BodyOf(std::string(command.name));
      }
      // Sets that are refused fall back to what is stored.
      StateOf("set_rs485pro_cfg", R"({"pro_cfg":[{"nothing":1}]})");
    });
    Fake().store.erase(KeyOf(kControledLog));
    ASSERT_EQ(Fake().store, documents) << "after " << refusals << " refusals";
  }
}

TEST_F(ServerTest, EventsThatWerePutOffAreWrittenByTheTickAndAtTheEnd) {
  const auto command = [](int i) {
    Fake().Deliver(kBusExtRequestMessage, R"({"type":"external_control_framestatus","body":{"ip":"10.0.0.)" +
                                              std::to_string(i) + R"(","frame_status":1}})");
  };
  const auto stored = [](const std::string& ip) {
    return Fake().store[KeyOf(kControledLog)].find(ip) != std::string::npos;
  };
  Run([&] {
    Fake().Advance(1, 100);  // the first tick
    for (int i = 0; i < 200; ++i) command(i);
    EXPECT_FALSE(stored("10.0.0.199"));
    Fake().Advance(4000, 100);
    EXPECT_TRUE(stored("10.0.0.199"));
    command(200);
    EXPECT_FALSE(stored("10.0.0.200"));
    Fake().on_status(nullptr, kDpStatusEnding, Fake().user);
    EXPECT_TRUE(stored("10.0.0.200")) << "asked to end";
    command(201);
  });
  EXPECT_TRUE(stored("10.0.0.201")) << "ended";
}

}  // namespace
}  // namespace businessserver
