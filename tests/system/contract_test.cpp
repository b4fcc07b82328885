// The contract against the device: its witness sees what is wrong, and values at and beyond each edge do what the
// schemas say that they do.
#include <fcntl.h>
#include <termios.h>

#include <functional>

#include "desk/lamp.h"
#include "device_on_desk.h"
#include "json_words.h"
#include "plain_words.h"

namespace {

TEST(ContractWatch, SeesWhatIsAgainstTheContract) {
  desk::Loop loop;
  ContractWatch watch(loop);
  const struct {
    const char* topic;
    const char* payload;
    const char* fault;  // its beginning; empty: none
  } kRows[] = {
      {"BUS_BROADCAST_MESSAGE", R"({"type":"ledcolor_changed","body":{"led_color":7}})", ""},
      {"BUS_BROADCAST_MESSAGE", R"({"type":"ledcolor_changed","body":{"led_color":8}})",
       "messages/ledcolor_changed: body.led_color: 8 is none of"},
      {"BUS_BROADCAST_MESSAGE", R"({"type":"frame_changed","body":{"totle":1,"free":1}})",
       "messages/frame_changed: body.cm_dev: missing"},
      {"BUS_BROADCAST_MESSAGE", R"({"type":"led_changed"})", "no such message"},
      {"BUS_BROADCAST_MESSAGE", "{", "no such message"},
      {"BUS_SIMULATOR_TRIGGER", "short", "no record"},
      {"reply/x", R"({"state":200,"error_msg":"All done","type":"get_dev_pos","body":{"pos":4}})",
       "replies/get_dev_pos: body.pos: 4 is none of"},
      {"reply/x", R"({"state":200,"error_msg":"set error","type":"set_dev_pos"})", "replies/set_dev_pos: "},
      {"reply/x", R"({"state":403,"error_msg":"error type","type":"get_dev_pos"})", ""},
      {"park/g/counts/a/L1", R"({"spaces":1,"free":2})", "site/counts: free: 2 is above spaces, 1"},
      {"park/g/health/a", R"({"online":true})", "site/health: run: missing"},
      {"park/g/reply/x", R"({"state":504,"error_msg":"the device does not answer","type":"get_dev_pos"})", ""},
      {"park/g/reply/x", R"({"state":403,"error_msg":"no","type":"cmd"})", "site/remote_refusal: error_msg: "},
      {"reply/x", R"({"state":200,"error_msg":"All done","type":"get_change","body":{"id":""}})",
       "site/get_change_reply: body.id: "},
      // What a test asks for against the contract comes back.
      {"BUS_REQUEST_MESSAGE", R"({"type":"set_dev_pos","body":{"pos":4}})", ""},
      {"reply/x", R"({"state":200,"error_msg":"All done","type":"get_dev_pos","body":{"pos":4}})", ""},
  };
  for (const auto& row : kRows) {
    const std::string fault = watch.See(row.topic, row.payload);
    const bool as_expected = *row.fault == '\0' ? fault.empty() : fault.find(row.fault) == 0;
    EXPECT_TRUE(as_expected) << row.payload << "\nfault: " << fault;
  }
}

// A member of a command, with values at and beyond each of its edges, and what tells that the device does what the
// value says. The schema has to accept exactly the values that it does it for.
struct EdgeRow {
  const char* command;
  const char* body;    // valid; the member is replaced in it
  const char* member;  // "parkingledcolorcfg.parkingfreeledcolor"
  const char* values;  // a JSON list
  std::function<bool(const Json::Value& value)> does_it;
  const char* before = nullptr;  // a body that is sent before each value, where it is another
};

class Edges : public DeviceOnDesk {
 protected:
  static Json::Value Parse(const std::string& text) {
    Json::Value document;
    EXPECT_TRUE(businessserver::ParseJson(text, document)) << text;
    return document;
  }

  // The reply's state; 0 for none.
  int Send(const std::string& command, const Json::Value& body) {
    Json::Value request;
    request["type"] = command;
    request["body"] = body;
    next_event_ = desk_.journal().next();
    next_log_ = desk_.daemon_log().next();
    sent_ = body;
    const bool external = businessserver::FindCommand(businessserver::kBusExtRequestMessage, command) != nullptr;
    return Parse(Ask(external ? businessserver::kBusExtRequestMessage : businessserver::kBusRequestMessage,
                     words::CompactText(request)))["state"]
        .asInt();
  }
  int Tell(const std::string& command, const std::string& body) { return Send(command, Parse(body)); }

  Json::Value Get(const std::string& command) {
    return Parse(Ask(businessserver::kBusRequestMessage, "{\"type\":\"" + command + "\"}"))["body"];
  }

  tcflag_t LineFlags() const {
    const int line = open((directory_ + "/dev/ttyAMA2").c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    termios settings = {};
    EXPECT_EQ(tcgetattr(line, &settings), 0);
    close(line);
    return settings.c_cflag;
  }

  // The bytes of the frame that a result makes leave on the line; empty for none.
  std::string FrameOfResult() {
    next_event_ = desk_.journal().next();
    desk_.CarLeaves(1, {{"name", "P1"}});
    return BytesOnLine();
  }

  // What has left on the line since next_event_.
  std::string BytesOnLine() {
    std::string bytes;
    desk_.loop().RunUntil(
        [&] {
          for (const desk::Event& event : desk_.journal().events()) {
            const std::string* value =
                event.source == desk::Source::kSerialOut ? desk::FindFact(event.facts, "bytes") : nullptr;
            if (bytes.empty() && event.number >= next_event_ && value != nullptr) bytes = *value;
          }
          return !bytes.empty();
        },
        Milliseconds(300));
    return bytes;
  }

  // Stored as it was sent, and taken up without a word of trouble.
  bool IsKept(const std::string& reading_command) {
    const Json::Value kept = Get(reading_command);
    desk_.loop().RunFor(Milliseconds(50));  // its lines come by another way than its answers
    const auto& lines = desk_.daemon_log().events();
    const bool troubled = std::any_of(lines.begin(), lines.end(), [&](const desk::Event& line) {
      return line.number >= next_log_ && line.text.find(" 3 lib/") != std::string::npos;
    });
    return state_ == 200 && kept == sent_ && !troubled;
  }

  bool Shows(int color) {
    return desk_.loop().RunUntil([&] { return desk::LedColor(desk_.board().LedData()) == color; }, Milliseconds(300));
  }

  void Play(const EdgeRow& row) {
    for (const Json::Value& value : Parse(row.values)) {
      Json::Value body = Parse(row.body);
      Json::Value* place = &body;
      for (std::string rest = row.member; !rest.empty();) {
        const size_t dot = std::min(rest.find('.'), rest.size());
        place = &(*place)[rest.substr(0, dot)];
        rest.erase(0, dot + 1);
      }
      *place = value;
      Json::Value request;
      request["type"] = row.command;
      request["body"] = body;
      const bool valid = contract::Check(std::string("requests/") + row.command, request).empty();
      Tell(row.command, row.before != nullptr ? row.before : row.body);
      state_ = Send(row.command, body);
      EXPECT_EQ(row.does_it(value), valid) << row.command << " " << row.member << " " << words::CompactText(value);
    }
  }

  int state_ = 0;  // of the last reply
  Json::Value sent_;
  uint64_t next_log_ = 0;  // of the daemon's lines
};

TEST_F(Edges, OfTheLine) {
  constexpr char kLine[] = R"({"ttyionum":2,"baudrate":9600,"checkbit":0,"databit":8,"stopbit":1})";
  const auto speed_is = [&](int wanted) {
    const std::map<int, tcflag_t> codes = {{300, B300},   {1200, B1200},   {2400, B2400},   {4800, B4800},
                                           {9600, B9600}, {19200, B19200}, {38400, B38400}, {115200, B115200}};
    return codes.count(wanted) != 0 && (LineFlags() & CBAUD) == codes.at(wanted);
  };
  // Settings that the line does not know leave it as it was: the speed that comes with them tells.
  constexpr char kSlow[] = R"({"ttyionum":2,"baudrate":4800,"checkbit":0,"databit":8,"stopbit":1})";
  const auto taken = [&](const Json::Value&) { return speed_is(4800); };
  const EdgeRow kRows[] = {
      {"set_ttyio_cfg", kLine, "baudrate",
       "[0,50,299,300,1200,2400,4800,9600.0,9601,19200,38400,57600,115200,115201,230400]",
       [&](const Json::Value& value) { return speed_is(value.asInt()); }},
      {"set_ttyio_cfg", kSlow, "databit", "[5,6,7,8,9]", taken, kLine},
      {"set_ttyio_cfg", kSlow, "checkbit", "[-1,0,1,2,3,114,115,116]", taken, kLine},
      {"set_ttyio_cfg", kSlow, "stopbit", "[0,1,2,3]", taken, kLine},
      {"set_ttyio_cfg", kSlow, "ttyionum", "[0,2,2147483647,2147483648,\"2\",null]", taken, kLine},
  };
  for (const EdgeRow& row : kRows) Play(row);
}

TEST_F(Edges, OfWhatLeavesOnTheLine) {
  constexpr char kDisplays[] =
      R"({"proto":0,"f_ena":1,"f_addr":1,"r_ena":1,"r_addr":2,"l_ena":1,"l_addr":3,
          "frame1_addr":4,"frame2_addr":5,"frame3_addr":6})";
  const auto display_at = [&](const Json::Value& value) {
    return Happens(desk::Source::kSerialOut, "address", value.asString(), 300);
  };
  constexpr char kRelays[] =
      R"({"proto":1,"f_ena":0,"f_addr":0,"r_ena":0,"r_addr":0,"l_ena":0,"l_addr":0,
          "frame1_addr":4,"frame2_addr":5,"frame3_addr":6})";
  constexpr char kNoDisplays[] =
      R"({"proto":0,"f_ena":0,"f_addr":0,"r_ena":0,"r_addr":0,"l_ena":0,"l_addr":0,
          "frame1_addr":0,"frame2_addr":0,"frame3_addr":0})";
  const auto driven = [&](const char* address) {
    return [&, address](const Json::Value& value) {
      const bool heard = Happens(desk::Source::kSerialOut, "address", address, 300);
      return value.isInt() && ((value == 1 && heard) || (value == 0 && !heard));
    };
  };
  const auto output = [&](const Json::Value& value) {
    const std::string frame = FrameOfResult();
    const char* const kinds[] = {"BB 88", "AA 04", "BB 88"};  // the default list's, the relays'
    return value == 255 ? frame.empty() : value >= 0 && value <= 2 && frame.substr(0, 5) == kinds[value.asInt()];
  };
  const EdgeRow kRows[] = {
      {"set_ext_ttyio_cfg", kDisplays, "f_ena", "[-1,0,1,2,true,\"1\"]", driven("1"), kNoDisplays},
      {"set_ext_ttyio_cfg", kDisplays, "r_ena", "[0,1,2]", driven("2"), kNoDisplays},
      {"set_ext_ttyio_cfg", kDisplays, "l_ena", "[0,1,2]", driven("3"), kNoDisplays},
      {"set_ext_ttyio_cfg", kRelays, "proto", "[-1,0,1,2,3,254,255,256]", output},
      {"set_ext_ttyio_cfg", kDisplays, "f_addr", "[-1,0,1,255,256]", display_at},
      {"set_ext_ttyio_cfg", kDisplays, "r_addr", "[0,255,256]", display_at},
      {"set_ext_ttyio_cfg", kDisplays, "l_addr", "[0,255,256]", display_at},
      {"set_ext_ttyio_cfg", kRelays, "frame1_addr", "[-1,0,255,256]",
       [&](const Json::Value& value) {
         const std::string frame = FrameOfResult();
         const char byte = static_cast<char>(value.asInt());
         return value.asInt() >= 0 && value.asInt() < 256 && frame.substr(0, 8) == "AA 04 " + words::HexText(&byte, 1);
       }},
  };
  for (const EdgeRow& row : kRows) Play(row);
  Tell("set_ext_ttyio_cfg", kNoDisplays);

  // One field and a trailer; what is not built as it is written would be a wrong frame.
  const struct {
    const char* list;
    const char* frame;  // what the list says; null: it says nothing that a frame can be
  } kLists[] = {
      {R"([{"header":"BB88"},{"enable":1},{"end":"33"}])", "BB 88 BB 33"},
      {R"([{"header":"bb8f"},{"enable":1},{"end":""}])", "BB 8F BB"},
      {R"([{"header":"00112233445566778899AABBCCDDEEFF"},{"enable":1},{"end":"33"}])", nullptr},
      {R"([{"header":"0102030405060708090A0B0C0D0E0F10"},{"enable":1},{"end":""}])",
       "01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 BB"},
      {R"([{"header":"0102030405060708090A0B0C0D0E0F1011"},{"enable":1},{"end":""}])", nullptr},
      {R"([{"header":"BB8"},{"enable":1}])", nullptr},
      {R"([{"header":"BX"},{"enable":1}])", nullptr},
      {R"([{"licence":1}])", nullptr},
      {R"([{"header":"A1"},{"enable":1},{"end":""},{"checkbegin":0},{"checkend":3},{"checksum":1}])", "A1 BB 5C"},
      {R"([{"header":"A1"},{"enable":1},{"end":""},{"checkbegin":0},{"checkend":3},{"checksum":0}])", "A1 BB 1A"},
      {R"([{"header":"A1"},{"enable":1},{"end":""},{"checkbegin":0},{"checkend":3},{"checksum":2}])", "A1 BB"},
      {R"([{"header":"A1"},{"enable":"1"}])", nullptr},
      {"[]", nullptr},
  };
  for (const auto& row : kLists) {
    Json::Value request;
    request["type"] = "set_rs485pro_cfg";
    request["body"]["pro_cfg"] = Parse(row.list);
    const bool valid = contract::Check("requests/set_rs485pro_cfg", request).empty();
    EXPECT_EQ(valid, row.frame != nullptr) << row.list;
    const std::string frame = Send("set_rs485pro_cfg", request["body"]) == 200 ? FrameOfResult() : "";
    EXPECT_TRUE(row.frame == nullptr || frame == row.frame) << row.list << "\n" << frame;
  }
}

TEST_F(Edges, OfWhatOthersSendOnTheLine) {
  const struct {
    const char* type;
    const char* body;
    const char* bytes;  // what the body says that is sent; null: nothing that could be sent
  } kSent[] = {
      {"send_ttyio_data", R"({"data":"QUI=","data_len":2})", "41 42"},
      {"send_ttyio_data", R"({"data":"AA==","data_len":1})", "00"},
      {"send_ttyio_data", R"({"data":"QUI=","data_len":1})", nullptr},
      {"send_ttyio_data", R"({"data":"QUI=","data_len":3})", nullptr},
      {"send_ttyio_data", R"({"data":"QUI=","data_len":"2"})", nullptr},
      {"send_ttyio_data", R"({"data":"A=B=","data_len":1})", nullptr},
      {"send_ttyio_data", R"({"data":"","data_len":0})", nullptr},
      {"send_ttyio_data", R"({"data_len":2})", nullptr},
  };
  const auto is_valid = [](const std::string& type, const Json::Value& body) {
    Json::Value message;
    message["type"] = type;
    message["body"] = body;
    return contract::Check("messages/" + type, message).empty();
  };
  for (const auto& row : kSent) {
    EXPECT_EQ(is_valid(row.type, Parse(row.body)), row.bytes != nullptr) << row.body;
    next_event_ = desk_.journal().next();
    desk_.Listen(row.type, row.body);
    const std::string bytes = BytesOnLine();
    EXPECT_TRUE(row.bytes == nullptr || bytes == row.bytes) << row.body << "\n" << bytes;
  }
  for (const char* halt : {"0", "1", "0", "\"1\"", "1", "null"}) {
    const std::string body = std::string("{\"halt\":") + halt + "}";
    desk_.Listen("set_ttyio_halt", body);
    const bool halted = FrameOfResult().empty();
    EXPECT_EQ(is_valid("set_ttyio_halt", Parse(body)), (halt[0] == '0' && !halted) || (halt[0] == '1' && halted))
        << halt;
  }
}

TEST_F(Edges, OfTheLamp) {
  Tell("set_ctr_mdl", R"({"model":1})");
  const std::string colors =
      R"({"parkingfreeledcolor":1,"parkingfreeledcolortwinkle":0,"parkingoccupyledcolor":0,
          "parkingoccupyledcolortwinkle":0,"parkingretainledcolor":2,"parkingretainledcolortwinkle":0,
          "parkingalarmledcolor":3,"parkingalarmledcolortwinkle":1}})";
  const std::string own = "{\"externalcontrol_enable\":0,\"parkingledcolorcfg\":" + colors;
  const std::string external = "{\"externalcontrol_enable\":1,\"parkingledcolorcfg\":" + colors;
  const auto shows = [&](const Json::Value& value) { return Shows(value.asInt()); };
  const EdgeRow kByHand[] = {
      {"set_dev_led", R"({"led":4})", "led", "[-1,0,1,2,3,4,5,6,7,8,255]", shows},
      {"set_ctr_mdl", R"({"model":1})", "model", "[-1,1,2,3]", [&](const Json::Value&) { return state_ == 200; }},
  };
  for (const EdgeRow& row : kByHand) Play(row);
  Tell("set_ctr_mdl", R"({"model":0})");
  const EdgeRow kByState[] = {
      {"set_parking_color_cfg", own.c_str(), "parkingledcolorcfg.parkingfreeledcolor", "[-1,8,0,3,4,7]", shows},
      {"check_dev", R"({"led":4,"time":1})", "led", "[-1,0,7,8]", shows},
      {"check_dev", R"({"led":4,"time":1})", "time", "[-1,0,1,4294967,4294968]",
       [&](const Json::Value& value) {
         // Shown for as long as was asked, here: for longer than nothing, and not for less than was asked.
         desk_.loop().RunFor(Milliseconds(200));
         return Shows(4) && value.asInt64() * 1000 <= UINT32_MAX;
       },
       R"({"led":3,"time":1})"},
  };
  for (const EdgeRow& row : kByState) Play(row);
  Tell("check_dev", R"({"led":4,"time":0})");
  Tell("set_parking_color_cfg", external);
  const int state_colors[] = {1, 0, 2, 3};
  Play({"external_control_framestatus", R"({"ip":"10.0.0.1","frame_status":0})", "frame_status", "[-1,0,1,2,3,4]",
        [&](const Json::Value& value) {
          return value.asInt() >= 0 && value.asInt() < 4 && Shows(state_colors[value.asInt()]);
        }});
}

TEST_F(Edges, OfTheModuleAndTheRest) {
  const auto accepted = [&](const Json::Value&) { return state_ == 200; };
  const auto named = [&](const Json::Value& value) {
    return state_ == 200 && desk_.beacon().state().name == value.asString();
  };
  const auto identity = [&](const char* member) {
    return [this, member](const Json::Value& value) { return state_ == 200 && Get("get_bt")[member] == value; };
  };
  const EdgeRow kRows[] = {
      {"set_enc_cfg", R"({"level":0,"data":"QUI=","data_len":2})", "level", "[-1,0,1,4294967295,4294967296,\"a\"]",
       [&](const Json::Value&) { return IsKept("get_enc_cfg"); }},
      {"set_enc_cfg", R"({"level":0,"data":"QUI=","data_len":2})", "",
       R"([{"level":0,"data":"QQ==","data_len":1},{"level":1,"data":"QUFBQUFBQUFBQUFBQUFBQQ==","data_len":16},
           {"level":0,"data":"QUI=","data_len":-1},{"level":0,"data":[],"data_len":2}])",
       [&](const Json::Value&) { return IsKept("get_enc_cfg"); }},
      {"set_ibc_name", R"({"name":"gate"})", "name",
       R"(["g","fifteen bytes o","sixteen bytes ok","五个汉字啊","五个汉字啊!"])", named},
      {"set_ibc_broper", R"({"time":500})", "time", "[0,99,100,101,200,330,500,999,1000,1001]", accepted},
      {"set_ibc_pow", R"({"power":4})", "power", "[-24,-23,-22,-6,-5,0,3,4,12,15,18,19]", accepted},
      {"set_ibc_txp", R"({"power":-55})", "power", "[-91,-90,-55,-20,-19,0]", accepted},
      {"set_bt", R"({"uuid":"0123456789ABCDEF"})", "uuid",
       R"(["a","0123456789ABCDEF","0123456789ABCDEF0","五个汉字啊!","五个汉字啊!!"])", identity("uuid")},
      {"set_bt", R"({"major":1})", "major", "[-1,0,1,65535,65536,70000]", identity("major")},
      {"set_bt", R"({"minor":1})", "minor", "[0,65535,65536]", identity("minor")},
      {"set_dev_pos", R"({"pos":0})", "pos", "[-1,0,1,2,3,4]",
       [&](const Json::Value& value) {
         const char* const counts[] = {"n_totles", "l_totles", "r_totles", "f_totles"};
         const int pos = value.asInt();
         return pos >= 0 && pos < 4 && Get("get_net_status")[counts[pos]] == 3;
       }},
      {"cmd", R"({"cmdline":"true"})", "cmdline", R"(["touch done","touch do\u0000ne"])",
       [&](const Json::Value&) { return std::filesystem::remove(directory_ + "/done"); }},
  };
  for (const EdgeRow& row : kRows) Play(row);
  // As many reservations as one request takes.
  Json::Value reserving;
  reserving["body"] = contract::Schema("documents/bus_parking_reserve_cfg_value")["default"];
  reserving["type"] = "set_parking_reserve_cfg";
  Json::Value& reservations = reserving["body"]["reservecfg"];
  for (const unsigned number : {0u, 1u, 9u, 10u, 11u}) {
    const Json::Value one = reservations["reserve"][0];
    Json::Value list(Json::arrayValue);
    for (unsigned i = 0; i < number; ++i) list.append(one);
    reservations["reservenum"] = number;
    Json::Value body = reserving["body"];
    body["reservecfg"]["reserve"] = list;
    Json::Value request = reserving;
    request["body"] = body;
    const bool valid = contract::Check("requests/set_parking_reserve_cfg", request).empty();
    EXPECT_EQ(Send("set_parking_reserve_cfg", body) == 200 &&
                  words::CompactText(Get("get_parking_reserve_cfg")) == words::CompactText(body),
              valid)
        << number;
  }
  Json::Value longest;
  longest["type"] = "cmd";
  for (const size_t bytes : {2047u, 2048u}) {
    longest["body"]["cmdline"] = "";
    longest["body"]["cmdline"] = "true " + std::string(bytes - words::CompactText(longest).size() - 5, 'x');
    const bool valid = contract::Check("requests/cmd", longest).empty();
    EXPECT_EQ(Send("cmd", longest["body"]) == 200, valid) << bytes;
  }
}

}  // namespace
