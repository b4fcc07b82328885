#include "years/requests.h"

#include <iterator>

#include "protocol/commands.h"
#include "protocol/names.h"

namespace years {
namespace {

namespace bs = businessserver;

std::string KeyOf(const bs::StoredDocument& stored) { return std::string(stored.key, stored.key_length); }

template <size_t N>
auto OneOf(Random& random, const int (&values)[N]) {
  return std::to_string(values[random.Below(N)]);
}

std::string Number(Random& random, uint64_t limit) { return std::to_string(random.Below(limit)); }

std::string Request(std::string_view type, const std::string& body) {
  return "{\"type\": \"" + std::string(type) + "\", \"body\": {" + body + "}}";
}

std::string LineSettings(Random& random) {
  return "\"ttyionum\": 2, \"baudrate\": " + OneOf(random, {1200, 2400, 4800, 9600, 19200, 38400, 115200}) +
         ", \"checkbit\": " + OneOf(random, {0, 1, 2, 115}) + ", \"databit\": 8, \"stopbit\": " + OneOf(random, {1, 2});
}

std::string DisplaySettings(Random& random) {
  return "\"proto\": " + OneOf(random, {0, 1, 255}) + ", \"f_ena\": 1, \"f_addr\": " + Number(random, 200) +
         ", \"r_ena\": 1, \"r_addr\": " + Number(random, 200) + ", \"l_ena\": 0, \"l_addr\": 3, \"frame1_addr\": 11, " +
         "\"frame2_addr\": 12, \"frame3_addr\": 13";
}

std::string Colours(Random& random) {
  const auto colour = [&] { return Number(random, 8); };
  return "\"externalcontrol_enable\": " + Number(random, 2) +
         ", \"parkingledcolorcfg\": {\"parkingfreeledcolor\": " + colour() +
         ", \"parkingfreeledcolortwinkle\": 0, \"parkingoccupyledcolor\": " + colour() +
         ", \"parkingoccupyledcolortwinkle\": 0, \"parkingretainledcolor\": " + colour() +
         ", \"parkingretainledcolortwinkle\": 0, \"parkingalarmledcolor\": " + colour() +
         ", \"parkingalarmledcolortwinkle\": 1}";
}

std::string ExternalState(Random& random) {
  return "\"ip\": \"198.18.0." + Number(random, 5) + "\", \"frame_status\": " + Number(random, 4);
}

struct Setting {
  const char* command;
  const char* path;
  std::string (*body)(Random& random);
};
constexpr Setting kSettings[] = {
    {bs::kSetTtyioCfg, bs::kBusRequestMessage, LineSettings},
    {bs::kSetExtTtyioCfg, bs::kBusRequestMessage, DisplaySettings},
    {bs::kSetParkingColorCfg, bs::kBusRequestMessage, Colours},
    {bs::kSetDevPos, bs::kBusRequestMessage, [](Random& random) { return "\"pos\": " + Number(random, 4); }},
    {bs::kSetIbcName, bs::kBusRequestMessage,
     [](Random& random) { return "\"name\": \"gate" + Number(random, 99) + "\""; }},
    {bs::kSetIbcBroper, bs::kBusRequestMessage,
     [](Random& random) {
       return "\"time\": " + OneOf(random, {100, 200, 330, 1000});
     }},
    {bs::kSetIbcPow, bs::kBusRequestMessage,
     [](Random& random) {
       return "\"power\": " + OneOf(random, {-23, 0, 12});
     }},
    {bs::kSetIbcTxp, bs::kBusRequestMessage, [](Random& random) { return "\"power\": -" + Number(random, 50); }},
    {bs::kSetRs485proCfg, bs::kBusRequestMessage,
     [](Random& random) {
       return R"("pro_cfg": [{"header": "AA"}, {"enable": 1}, {"freenum": )" + Number(random, 2) + "}]";
     }},
    {bs::kSetBt, bs::kBusRequestMessage,
     [](Random& random) { return R"("uuid": "0123456789ABCDEF", "major": )" + Number(random, 65536); }},
    {bs::kExternalControlFramestatus, bs::kBusExtRequestMessage, ExternalState},
};

}  // namespace

void PutOwnersDocuments(Store& store, unsigned device) {
  Random random(0x0DDE, device);
  const auto put = [&](const bs::StoredDocument& stored, const std::string& body) {
    store.values[KeyOf(stored)] = "{" + body + "}";
  };
  put(bs::kDeviceTtyio, LineSettings(random));
  put(bs::kExtTtyio, DisplaySettings(random));
  put(bs::kBusLedColor, Colours(random));
  put(bs::kIbcName, R"("name": "owner")");
  put(bs::kIbcBroper, R"("time": 200)");
  put(bs::kIbcPower, R"("power": 12)");
  put(bs::kIbcTxpower, R"("power": -40)");
  put(bs::kDevPos, R"("pos": 0)");
  put(bs::kDevCtrlMdl, R"("model": 0 )");
  put(bs::kSysDeviceName, R"("devicename": "camera")");
  put(bs::kRs485pro, R"("pro_cfg": [{"header": "BB88"}, {"enable": 1}])");
}

Question DrawQuestion(Random& random) {
  if (random.Chance(300)) {
    const Setting& setting = kSettings[random.Below(std::size(kSettings))];
    return {setting.path, Request(setting.command, setting.body(random))};
  }
  while (true) {
    const bs::Command& command = bs::kCommands[random.Below(std::size(bs::kCommands))];
    if (command.effect != bs::CommandEffect::kReads) continue;
    return {command.path.data(), Request(command.name, "")};
  }
}

std::string DrawQuestionFromAfar(Random& random) {
  switch (random.Below(6)) {
    case 0:
      return R"({"type": "try_change", "body": {"id": "years", "seconds": )" + std::to_string(1 + random.Below(120)) +
             R"(, "changes": [{"type": "set_dev_pos", "body": {"pos": )" + Number(random, 4) +
             R"(}}, {"type": "set_parking_color_cfg", "body": {)" + Colours(random) + "}}]}}";
    case 1:
      return R"({"type": "keep_change", "body": {"id": "years"}})";
    case 2:
      return R"({"type": "undo_change", "body": {"id": "years"}})";
    case 3:
      return R"({"type": "get_change"})";
    case 4:
      return R"({"type": "get_relay_cfg"})";
    default:
      return Request("get_net_status", "");
  }
}

std::string DrawBytes(Random& random, size_t size) {
  std::string bytes;
  while (bytes.size() < size) bytes += static_cast<char>(random.Next());
  return bytes;
}

std::string DrawNonsense(Random& random) {
  switch (random.Below(5)) {
    case 0:
      return DrawBytes(random, random.Below(2000));
    case 1:
      return std::string(1 + random.Below(3000), '[');
    case 2:
      return R"({"type": 7, "body": [)" + Number(random, 1000) + "]}";
    case 3:
      return R"({"type": "set_dev_led", "body": {"led": {"led_color": "x"}}, "s_addr": "nobody", "cm_dev": 3)";
    default:
      return R"({"type": "no such command", "zone": "//", "spaces": -1, "free": 1e300})";
  }
}

}  // namespace years
