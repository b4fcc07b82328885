// The request envelope, the configuration commands and external control.
#include <ctime>

#include "../moved_clock/moved_clock.h"
#include "protocol/commands.h"
#include "server_fixture.h"

namespace businessserver {
namespace {

std::string OfSize(size_t size) {
  const std::string head = R"({"type":"get_dev_pos","pad":")";
  return head + std::string(size - head.size() - 2, 'x') + "\"}";
}

TEST_F(ServerTest, AnswersEveryEnvelope) {
  const struct {
    const char* name;
    std::string text;
    int state;
    const char *error_msg, *echoed_type;  // the latter as JSON text; null: no such key
  } rows[] = {
      {"2048 bytes", OfSize(2048), 401, "request data is Error", nullptr},
      {"2047 bytes", OfSize(2047), 200, "All done", "\"get_dev_pos\""},
      {"trailing comma", R"({"type":"get_dev_pos",})", 402, "request data is not json", nullptr},
      {"deep nesting", std::string(2000, '['), 402, "request data is not json", nullptr},
      {"comment", "/* c */ {\"type\":\"reset_ibc\"} // d", 200, "All done", "\"reset_ibc\""},
      {"list", "[1]", 404, "set error", nullptr},
      {"number", "7", 404, "set error", nullptr},
      {"null", "null", 403, "error type", "null"},
      {"type is a number", R"({"type":5})", 403, "error type", "5"},
      {"type is an object", R"({"type":{}})", 404, "set error", "{}"},
  };
  Run([&] {
    for (const auto& row : rows) {
      const Json::Value reply = Request(row.text);
      EXPECT_EQ(reply["state"].asInt(), row.state) << row.name;
      EXPECT_EQ(reply["error_msg"].asString(), row.error_msg) << row.name;
      EXPECT_EQ(reply.isMember("type"), row.echoed_type != nullptr) << row.name;
      EXPECT_TRUE(row.echoed_type == nullptr || reply["type"] == Parsed(row.echoed_type)) << row.name;
      EXPECT_TRUE(row.state == 200 || !reply.isMember("body")) << row.name;
    }
    EXPECT_TRUE(Fake().Logged(1, "SendDpReply : BUS_REQUEST_MESSAGE"));
    Fake().log.clear();
    EXPECT_EQ(Request(OfSize(2048), kBusExtRequestMessage)["state"].asInt(), 401);
    EXPECT_EQ(Request("{}", kBusExtRequestMessage)["state"].asInt(), 403);
    for (const auto& record : Fake().log) EXPECT_EQ(record.text.find("bus receive"), std::string::npos);
    EXPECT_FALSE(Fake().Logged(1, "SendDpReply : BUS_EXT_REQUEST_MESSAGE"));
  });
}

// Every document that can be set: the bytes stored, the key, and what its reading command then answers.
TEST_F(ServerTest, StoresTheStyledBodyUnderItsKeyOrTellsTheFailure) {
  const std::tuple<std::string, const StoredDocument&, const char*> rows[] = {
      {"ttyio_cfg", kDeviceTtyio,
       R"({"ttyionum":1,"baudrate":19200,"checkbit":0,"databit":8,"stopbit":2,"note":"extra keys stay"})"},
      {"parking_color_cfg", kBusLedColor, R"({"parkingledcolorcfg":{}})"},
      {"parking_reserve_cfg", kParkingReserve, R"([1,"any"])"},
      {"enc_cfg", kEncCfg, R"({"level":1,"data":"AAAA","data_len":40})"},
      {"dev_pos", kDevPos, R"({"pos":3})"},
      {"dev_pos", kDevPos, "null"},
      {"ext_ttyio_cfg", kExtTtyio, R"({"proto":255,"frame1_addr":1,"frame2_addr":2,"frame3_addr":3})"},
      {"ctr_mdl", kDevCtrlMdl, R"({"model":1})"},
      {"rs485pro_cfg", kRs485pro, R"({"pro_cfg":[{"header":"AA"}]})"},
      {"ibc_name", kIbcName, R"({"name":"fifteen bytes !"})"},
  };
  AnswerAsModule();
  Run([&] {
    for (const auto& [name, document, body] : rows) {
      EXPECT_EQ(StateOf("set_" + name, body), 200) << name;
      EXPECT_EQ(Fake().store[KeyOf(document)], StyledText(Parsed(body))) << name;
      EXPECT_EQ(BodyOf("get_" + name), Parsed(body)) << name;
    }
    EXPECT_EQ(external_.Settings().c_cflag & (CBAUD | CSTOPB), tcflag_t{B19200 | CSTOPB});
    const auto stored = Fake().store;
    Fake().store_down = true;
    Fake().store_reads.clear();
    for (const auto& [name, document, body] : rows) EXPECT_EQ(StateOf("set_" + name, body), 404) << name;
    const std::vector<std::string> read_again = {KeyOf(kDeviceTtyio), KeyOf(kBusLedColor), KeyOf(kEncCfg),
                                                 KeyOf(kDevPos),      KeyOf(kDevPos),      KeyOf(kExtTtyio)};
    EXPECT_EQ(Fake().store_reads, read_again) << "applied whatever the store said";
    EXPECT_EQ(StateOf("set_bt", R"({"major":7})"), 200) << "the module took it";
    EXPECT_EQ(BodyOf("get_dev_pos"), Parsed(R"({"pos":0})")) << "the default";
    EXPECT_EQ(Fake().store, stored);
  });
}

TEST_F(ServerTest, UnreadableDocumentsAreReplaced) {
  Run([&] {
    EXPECT_EQ(BodyOf("get_parking_reserve_cfg")["reservecfg"]["reserve"][0]["endsec"].asInt(), 30) << "answered";
    EXPECT_EQ(Fake().store.count(KeyOf(kParkingReserve)), 0u) << "but never stored";
    EXPECT_TRUE(Fake().Logged(3, "Default Cfg is Error Json : bus_parking_reserve_cfg_value"));
    EXPECT_TRUE(Fake().unreadable.empty());
    const std::tuple<const StoredDocument&, const char*, const char*, const char*> kRows[] = {
        {kDevPos, R"({"pos": 3,})", "get_dev_pos", "Missing '}' or object member name at byte 10"},
        {kDevCtrlMdl, R"({"model": 12x})", "get_ctr_mdl", "Missing ',' or '}' in object declaration at byte 12"},
        {kIbcPower, R"({"power": 1e})", "get_ibc_pow", "No number at byte 10"},
        {kIbcName, R"({"name": "京A12345)", "get_ibc_name", "Syntax error: value, object or array expected at byte 9"},
    };
    for (const auto& [stored, text, request, problem] : kRows) {
      Fake().store[KeyOf(stored)] = text;
      EXPECT_EQ(BodyOf(request), Parsed(DefaultOf(stored))) << text;
      EXPECT_EQ(Fake().store[KeyOf(stored)], DefaultOf(stored));
      EXPECT_EQ(Fake().unreadable[KeyOf(stored)], text) << "nothing of an owner's is lost";
      EXPECT_TRUE(Fake().Logged(3, std::string(stored.key) + " cannot be read: " + problem)) << text;
    }
    // What is not replaced is where it was.
    Fake().store[KeyOf(kParkingReserve)] = "abc";
    BodyOf("get_parking_reserve_cfg");
    EXPECT_EQ(Fake().store[KeyOf(kParkingReserve)], "abc");
    EXPECT_EQ(Fake().unreadable.count(KeyOf(kParkingReserve)), 0u);
  });
}

TEST_F(ServerTest, RefusedBodiesStoreNothing) {
  const std::pair<const char*, const char*> rows[] = {
      {"set_ctr_mdl", R"({"model":2})"},
      {"set_ctr_mdl", R"({"model":"1"})"},
      {"set_ibc_name", R"({"name":"sixteen bytes ok"})"},
      {"set_ibc_name", R"({"name":"a\r\nDTM:TXP-18"})"},
      {"set_ibc_broper", R"({"time":300})"},
      {"set_ibc_pow", R"({"power":-4})"},
      {"set_ibc_pow", R"({"power":4})"},  // the module does not answer
      {"set_rs485pro_cfg", R"({"pro_cfg":[{"nothing":1}]})"},
  };
  Run([&] {
    const auto before = Fake().store;
    for (const auto& [command, body] : rows) EXPECT_EQ(StateOf(command, body), 404) << body;
    EXPECT_EQ(Fake().store, before);
  });
}

TEST_F(ServerTest, BodiesOfTheWrongType) {
  // The states for a list, a number, a text, null and none; null is an empty object.
  const std::string refuse_all_but_none = "set_parking_color_cfg set_ctr_mdl set_ibc_name set_ibc_pow set_bt cmd";
  const std::string refuse_all = "set_ibc_broper set_ibc_txp set_rs485pro_cfg set_dev_led";
  AnswerAsModule();
  Run([&] {
    for (const Command& command : kCommands) {
      const std::string name(command.name);
      if (command.path != std::string(kBusRequestMessage) || name == kGetLatestIvsresult) continue;
      std::string states;
      for (const char* body : {R"(,"body":[]})", R"(,"body":7})", R"(,"body":"x"})", R"(,"body":null})", "}"}) {
        states += Request("{\"type\":\"" + name + "\"" + body)["state"].asString() + " ";
      }
      // The others are stored as they are, the component staying with its defaults or with what it had; or not read.
      EXPECT_EQ(states, refuse_all.find(name) != std::string::npos            ? "404 404 404 404 404 "
                        : refuse_all_but_none.find(name) != std::string::npos ? "404 404 404 200 200 "
                                                                              : "200 200 200 200 200 ")
          << name;
    }
  });
}

TEST_F(ServerTest, ActionsAndLiveState) {
  Run([&] {
    Fake().shell.clear();
    EXPECT_EQ(StateOf("cmd", R"({"cmdline":"reboot now"})"), 200);
    EXPECT_EQ(Request(R"({"type":"cmd"})")["state"].asInt(), 200);
    EXPECT_EQ(Fake().shell, (std::vector<std::string>{"reboot now", ""}));
    EXPECT_EQ(BodyOf("get_bt"), Parsed(R"({"uuid":"","major":0,"minor":0})")) << "filled although nothing answers";
  });
}

TEST_F(ServerTest, DeviceCheckHoldsTheLedForItsTime) {
  Run([&] {
    Fake().sent.clear();
    Request(R"({"type":"check_dev","body":{"led":3,"time":5}})");
    EXPECT_EQ(LedRegister(), 255u);
    Fake().Deliver(kAvsParkRectChange, Record(Space(1)));
    Fake().Advance(4999);
    EXPECT_EQ(LedRegister(), 255u);
    Fake().Advance(1);
    EXPECT_EQ(LedRegister(), 4u) << "the state that came meanwhile";
    const auto colors = Broadcasts("ledcolor_changed");
    ASSERT_EQ(colors.size(), 2u);
    EXPECT_EQ(colors[0]["led_color"].asInt(), 3);
    EXPECT_EQ(colors[1]["led_color"].asInt(), 0);
    Request(R"({"type":"check_dev","body":{"led":2,"time":5}})");
    Fake().Advance(3000);
    Request(R"({"type":"check_dev","body":{"led":5,"time":5}})");  // starts the time anew
    Fake().Advance(4000);
    EXPECT_EQ(LedRegister(), 12u);
    Fake().Advance(1000);
    EXPECT_EQ(LedRegister(), 4u);
    Request(R"({"type":"check_dev","body":{"led":3,"time":-1}})");
    Fake().Advance(0);
    EXPECT_EQ(LedRegister(), 4u) << "a negative time ends at once";
  });
}

TEST_F(ServerTest, DirectControlAndTheWayBack) {
  Fake().store[KeyOf(kDevCtrlMdl)] = R"({"model":1})";
  Run([&] {
    EXPECT_EQ(LedRegister(), 8u) << "the first colour is shown all the same";
    Fake().Deliver(kAvsParkRectChange, Record(Space(1)));
    EXPECT_EQ(LedRegister(), 8u);
    Request(R"({"type":"set_ctr_mdl","body":{"model":0}})");
    EXPECT_EQ(StateOf("set_dev_led", R"({"led":6})"), 404);
    EXPECT_EQ(LedRegister(), 4u);
    Request(R"({"type":"set_ctr_mdl","body":{"model":1}})");
    Fake().sent.clear();
    EXPECT_EQ(StateOf("set_dev_led", R"({"led":6})"), 200);
    EXPECT_EQ(LedRegister(), 20u);
    ASSERT_EQ(Broadcasts("ledcolor_changed").size(), 1u);
    Fake().Deliver(kAvsParkRectChange, Record(Space(1)));
    EXPECT_EQ(LedRegister(), 20u);
    EXPECT_EQ(StateOf("set_dev_led", R"({"led":-1})"), 200);
    EXPECT_EQ(LedRegister(), 20u);
    Request(R"({"type":"check_dev","body":{"led":3,"time":1}})");
    Fake().Advance(1000);
    EXPECT_EQ(LedRegister(), 20u) << "the operator's colour again";
    Fake().sent.clear();
    Request(R"({"type":"set_ctr_mdl","body":{"model":0}})");
    EXPECT_EQ(LedRegister(), 4u) << "the state's colour at once";
    EXPECT_EQ(Broadcasts("ledcolor_changed").size(), 0u) << "it was chosen before, silently";
  });
}

TEST_F(ServerTest, ExternalControlIsRefusedRecordedAndAdmitted) {
  const auto command = [&](const std::string& body) {
    return StateOf("external_control_framestatus", body, kBusExtRequestMessage);
  };
  const auto log = [&] { return BodyOf("quary_controled_log")["logs"]; };
  const auto now = [] {
    char text[32];
    const time_t seconds = time(nullptr);
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", localtime(&seconds));
    return std::string(text);
  };
  Run([&] {
    EXPECT_EQ(command(R"({"ip":"192.168.1.100","frame_status":100})"), 405);
    EXPECT_TRUE(log().isNull()) << "what stands for no event yet";
    const std::string before = now();
    EXPECT_EQ(command(R"({"ip":"192.168.1.100","frame_status":0})"), 405);
    EXPECT_EQ(log().size(), 1u) << "the first command of all is an event";
    const std::string recorded = log()[0]["log_time"].asString();
    EXPECT_TRUE(before <= recorded && recorded <= now() && recorded.size() == before.size()) << recorded;
    for (int repeat = 0; repeat < 2; ++repeat) EXPECT_EQ(command(R"({"ip":"10.0.0.9","frame_status":2})"), 405);
    ASSERT_EQ(log().size(), 2u) << "recorded although refused, a repeat once";
    EXPECT_EQ(log()[1]["log_ip"].asString(), "10.0.0.9");
    EXPECT_EQ(LedRegister(), 8u);
    Request(R"({"type":"set_parking_color_cfg","body":{"externalcontrol_enable":1,
                "parkingledcolorcfg":{"parkingretainledcolor":2}}})");
    EXPECT_EQ(LedRegister(), 16u) << "the state that the refused command left";
    Fake().Deliver(kAvsParkRectChange, Record(Space(1)));
    EXPECT_EQ(LedRegister(), 16u) << "results do not show";
    for (const char* body : {R"({"ip":{},"frame_status":1})", R"({"ip":"x","frame_status":"y"})", "[]"}) {
      EXPECT_EQ(command(body), 404) << body;
    }
    for (const int state : {4, -1}) {
      EXPECT_EQ(command(R"({"ip":"a","frame_status":)" + std::to_string(state) + "}"), 200) << state;
      EXPECT_EQ(LedRegister(), 16u) << "no such state: the colour stays";
    }
    EXPECT_EQ(log().size(), 4u) << "one for each address or state that was new and well formed";
    if (sizeof(time_t) < sizeof(int64_t)) return;  // a build for a system without
    MoveWallClock(kNoonIn2040 - time(nullptr));
    EXPECT_EQ(command(R"({"ip":"b","frame_status":0})"), 200);
    EXPECT_EQ(log()[4]["log_time"].asString().substr(0, 10), "2040-02-29");
    MoveWallClock(0);
  });
}

}  // namespace
}  // namespace businessserver
