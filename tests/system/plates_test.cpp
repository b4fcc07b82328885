// Plates are personal data: at the level that a fleet logs at, none stands in any log, whatever way it takes. And what
// that level costs a flash chip.
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "device_on_desk.h"
#include "protocol/commands.h"

namespace {

namespace bs = businessserver;
namespace fs = std::filesystem;

class PlatesOnDesk : public DeviceOnDesk {
 protected:
  PlatesOnDesk() : DeviceOnDesk({"-v", "2"}) {
    relays_ear_.OnMessage([this](const desk::BusMessage& message) {
      const bool heard_by_relay =
          message.topic == bs::kBusBroadcastMessage || message.topic == bs::kHttpRequestMessageRoot;
      if (heard_by_relay) relay_heard_ += message.payload;
    });
    relays_ear_.Start();
    EXPECT_TRUE(desk_.loop().RunUntil([&] { return relays_ear_.connected(); }, Milliseconds(10000)));
  }

  std::string Logs() const {
    std::ostringstream text;
    for (const auto& entry : fs::directory_iterator(directory_ + "/log")) text << std::ifstream(entry.path()).rdbuf();
    return text.str();
  }

  // A question about one after the other: whatever came before it was worked on.
  void Await(const char* command) {
    EXPECT_NE(Ask(bs::kBusRequestMessage, std::string(R"({"type":")") + command + R"("})"), "") << command;
  }

  void RunPlatesThroughEveryWay() {
    for (int i = 0; i < 3; ++i) {
      desk_.CarArrives(1, "京A1Z2Y3");
      desk_.CarArrives(2, "ZZ9PLATE", {{"extra", "ZZ9PLATE"}, {"name", "ZZ9PLATE"}}, true);
      desk_.CarLeaves(2);
    }
    for (const size_t bytes : {100, 967, 969, 2000}) desk_.PublishRecordOf(bytes);
    const char* const kBodies[] = {
        R"({"type":"set_parking_reserve_cfg","body":{"reservecfg":{"reservenum":1,"reserve":[{"plate":"ZZ9PLATE"}]}}})",
        R"({"type":"get_parking_reserve_cfg"})",
        R"({"type":"set_parking_reserve_cfg","body":{"reservecfg":{"reserve":[{"plate":"ZZ9PLATE)",
        R"({"type":"set_dev_pos","body":{"pos":"ZZ9PLATE"}})",
        R"({"type":"set_rs485pro_cfg","body":{"pro_cfg":[{"ZZ9PLATE":1}]}})",
        R"({"type":"set_enc_cfg","body":{"level":1,"data":"ZZ9PLATE","data_len":6}})",
        R"({"type":"set_ibc_name","body":{"name":"ZZ9PLATE\r\n"}})",
        R"({"type":"ZZ9PLATE"})",
        R"({"type":"get_latest_ivsresult"})",
        R"({"type":"cmd","body":{"cmd":"echo ZZ9PLATE >/dev/null"}})",
        "ZZ9PLATE",
    };
    for (const char* body : kBodies) client_.Publish(bs::kBusRequestMessage, body);
    const char* const kTypes[] = {bs::kBusExtRequestMessage, bs::kBusBroadlistenMessage,    bs::kBusNetPush,
                                  bs::kSysDeviceNameChanged, bs::kHttpBroadcastMessageRoot, bs::kAvsSimulatorTrigger};
    for (const char* type : kTypes) {
      client_.Publish(type, "ZZ9PLATE");
      client_.Publish(type, R"({"type":"external_control_framestatus","body":{"ip":"ZZ9PLATE","frame_status":2}})");
      client_.Publish(type, R"({"type":"send_ttyio_data","body":{"data":"ZZ9PLATE","data_len":800}})");
    }
    desk_.SerialIn("ZZ9PLATE\r\n");
    // Documents that cannot be read, of the device and of others.
    for (const bs::StoredDocument& stored : {bs::kParkingReserve, bs::kSysDeviceName, bs::kIbcName}) {
      desk_.store_client().Set(std::string(stored.key, stored.key_length), R"({"plate":"ZZ9PLATE", })");
    }
    for (const char* command : {"get_parking_reserve_cfg", "get_ibc_name"}) Await(command);
    desk_.NameDevice("gate");
    Await(bs::kGetDevPos);
  }

  desk::BusClient relays_ear_{desk_.loop()};
  std::string relay_heard_;  // what can leave the device unasked
};

TEST_F(PlatesOnDesk, StandInNoLogAtTheFleetsLevel) {
  RunPlatesThroughEveryWay();
  const std::string logs = Logs();
  for (const char* part : {"ZZ9PLATE", "A1Z2Y3", "5A5A39504C415445"}) {
    EXPECT_EQ(logs.find(part), std::string::npos) << part << " in " << logs;
    EXPECT_EQ(relay_heard_.find(part), std::string::npos) << part << " in " << relay_heard_;
  }
  EXPECT_NE(relay_heard_.find("frame_changed"), std::string::npos);
  EXPECT_NE(logs.find(" 3 "), std::string::npos) << "errors are logged";

  // The question is a real one: where everything is logged, they are there.
  const auto bytes_a_result = [&](const char* level) {
    constexpr int kResults = 200;
    Await(bs::kGetDevPos);
    const size_t before = fs::file_size(directory_ + "/log/daemon.log");
    for (int i = 0; i < kResults; ++i) {
      desk_.CarArrives(1, "京A1Z2Y3");
      if (i % 20 == 0) Await(bs::kGetDevPos);
    }
    Await(bs::kGetDevPos);
    const double each = static_cast<double>(fs::file_size(directory_ + "/log/daemon.log") - before) / kResults;
    std::cout << level << ": " << each << " bytes a result, " << each * 86400 / 1e6
              << " MB a day at one result a second\n";
    return each;
  };
  EXPECT_EQ(bytes_a_result("fleet's level"), 0);
  kill(desk_.FindProcess("daemon")->pid(), SIGUSR1);
  EXPECT_GT(bytes_a_result("everything"), 100);
  RunPlatesThroughEveryWay();
  EXPECT_NE(Logs().find("ZZ9PLATE"), std::string::npos);
  EXPECT_NE(Logs().find("records of level 1 and up"), std::string::npos);
}

}  // namespace
