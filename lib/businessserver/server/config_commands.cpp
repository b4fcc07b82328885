// The configuration commands: what each does beyond what its row in protocol/commands.h says. Functions that return an
// int return -1 for failure, which the requester sees as "set error".
#include <iterator>

#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "server/business_server.h"
#include "server/request.h"
#include "shell.h"

namespace businessserver {

namespace {

constexpr uint32_t kMaxControlModel = 1;
constexpr size_t kMaxConfiguredNameLength = 15;  // shorter than what the module takes: the front end's own limit

// The beacon driver's answers, as the store's: -1 is failure.
int Accepted(int driver_result) { return driver_result == 0 ? 0 : -1; }

template <typename Row, size_t N>
constexpr const Row* FindByName(const Row (&rows)[N], std::string_view name) {
  for (const Row& row : rows) {
    if (row.name == name) return &row;
  }
  return nullptr;
}

}  // namespace

struct BusinessServer::ConfigCommands {
  // ---- what a body does before it is stored; -1 refuses it ----

  static int ApplyControlModel(BusinessServer& server, const Json::Value& body) {
    const uint32_t model = body[kModel].asUInt();
    if (model > kMaxControlModel) return -1;
    server.led_.control_model = model;
    return 0;
  }
  static int ApplyBeaconName(BusinessServer& server, const Json::Value& body) {
    const std::string name = body[kName].asString();
    if (name.size() > kMaxConfiguredNameLength) return -1;
    return Accepted(server.blue_tooth_->SetBluetoothName(name.data(), static_cast<int>(name.size())));
  }
  static int ApplyBeaconPeriod(BusinessServer& server, const Json::Value& body) {
    return Accepted(server.blue_tooth_->SetBroardCastPeriod(body[kTime].asInt()));
  }
  static int ApplyBeaconSendPower(BusinessServer& server, const Json::Value& body) {
    return Accepted(server.blue_tooth_->SetSendPower(body[kPower].asInt()));
  }
  static int ApplyBeaconTestPower(BusinessServer& server, const Json::Value& body) {
    return Accepted(server.blue_tooth_->SetTestPower(body[kPower].asInt()));
  }

  // ---- what follows a stored body ----

  static void ApplyDevPos(BusinessServer& server) {
    server.InitDevPos();
    server.PushOwnStatus();
  }
  static void ApplyExtTtyio(BusinessServer& server) {
    server.InitExtProtoConst();
    server.PushOwnStatus();
  }

  // ---- documents that their component checks and stores ----

  static int SetFrameDescription(BusinessServer& server, ConfigRequest& request) {
    return server.SetRs485Cfg(StyledText(request.body));
  }
  static int SetBeaconIdentity(BusinessServer& server, ConfigRequest& request) {
    return server.SetBlueToothCfg(request.body);
  }

  // ---- live state ----

  static int ReplyBeaconIdentity(BusinessServer& server, ConfigRequest& request) {
    return server.GetBlueToothInfo(request.reply[kBody]);
  }
  static int ReplyFrameStatus(BusinessServer& server, ConfigRequest& request) {
    const FrameDetailInfos& counts = server.net_push_->Counts();
    request.reply[kBody][kTotle] = counts.totle;
    request.reply[kBody][kFree] = counts.free;
    return 0;
  }
  static int ReplyNetStatus(BusinessServer& server, ConfigRequest& request) {
    GetFrameInfoJs(&server.net_push_->Counts(), request.reply[kBody]);
    return 0;
  }
  static int ReplyDeviceFrameStatus(BusinessServer& server, ConfigRequest& request) {
    request.reply[kBody][kFrameStatus] = server.led_.device_state;
    request.reply[kBody][kLedColor] = server.led_.current_colour;
    return 0;
  }
  static int ReplyControledLog(BusinessServer& server, ConfigRequest& request) {
    request.reply[kBody] = server.kvdb_log_->QuaryKvdbLog();
    return 0;
  }
  // Answers with the raw record instead of a document.
  static int ReplyLatestResult(BusinessServer& server, ConfigRequest& request) {
    const LX_Parking_Result_Param_Bus& last = server.last_sent_;
    DpClient_SendDpReply(request.msg->type_name, 0, request.msg->message_id, &last, sizeof last);
    request.answered = true;
    return 0;
  }

  // ---- actions ----

  static int RunCheckDev(BusinessServer& server, ConfigRequest& request) {
    server.StartCheckDev(request.body);
    return 0;
  }
  static int RunSetDevLed(BusinessServer& server, ConfigRequest& request) {
    if (server.led_.control_model == 0) return -1;
    server.SetDevLed(request.body);
    return 0;
  }
  // Blocks the event loop until the command line has ended, as its senders expect.
  static int RunShell(BusinessServer&, ConfigRequest& request) {
    const std::string command_line = static_cast<const Json::Value&>(request.body)[kCmdline].asString();
    RunShellCommand(command_line.c_str());
    return 0;
  }
  // Accepted for front ends that send it; the module offers nothing to do.
  static int Ignore(BusinessServer&, ConfigRequest&) { return 0; }

  // ---- the tables ----

  // The body is stored as it is, then the component takes up what is stored, whatever the store said.
  struct Storing {
    std::string_view name;
    int (*accept)(BusinessServer& server, const Json::Value& body);  // null: anything is accepted
    void (*apply)(BusinessServer& server);                           // null: stored only
  };
  static constexpr Storing kStoring[] = {
      {kSetTtyioCfg, nullptr, [](BusinessServer& server) { server.SetTtyioParity(); }},
      {kSetParkingColorCfg, nullptr, [](BusinessServer& server) { server.InitLedColorCfg(); }},
      {kSetParkingReserveCfg, nullptr, nullptr},
      {kSetEncCfg, nullptr, [](BusinessServer& server) { server.InitEncCfg(); }},
      {kSetDevPos, nullptr, ApplyDevPos},
      {kSetExtTtyioCfg, nullptr, ApplyExtTtyio},
      {kSetCtrMdl, ApplyControlModel, [](BusinessServer& server) { server.SetCurLedColor(); }},
      {kSetIbcName, ApplyBeaconName, nullptr},
      {kSetIbcBroper, ApplyBeaconPeriod, nullptr},
      {kSetIbcPow, ApplyBeaconSendPower, nullptr},
      {kSetIbcTxp, ApplyBeaconTestPower, nullptr},
  };

  // Everything that is more than storing or reading a document.
  struct Action {
    std::string_view name;
    int (*run)(BusinessServer& server, ConfigRequest& request);
  };
  static constexpr Action kActions[] = {
      {kSetRs485proCfg, SetFrameDescription},
      {kSetBt, SetBeaconIdentity},
      {kGetBt, ReplyBeaconIdentity},
      {kGetFrameStatus, ReplyFrameStatus},
      {kGetNetStatus, ReplyNetStatus},
      {kGetDeviceFrameStatus, ReplyDeviceFrameStatus},
      {kQuaryControledLog, ReplyControledLog},
      {kGetLatestIvsresult, ReplyLatestResult},
      {kCheckDev, RunCheckDev},
      {kSetDevLed, RunSetDevLed},
      {kCmd, RunShell},
      {kSetIbcConntime, Ignore},
      {kSetIbcId, Ignore},
      {kGetIbcMac, Ignore},
      {kResetIbc, Ignore},
  };

  // Each command of the path is in the table of its kind, or is the reading of a document; nothing else is in them.
  static constexpr bool TablesAreWhole() {
    size_t found = 0;
    for (const Command& command : kCommands) {
      if (command.path != kBusRequestMessage) continue;
      const bool acts = FindByName(kActions, command.name) != nullptr;
      const bool stores = FindByName(kStoring, command.name) != nullptr;
      const bool reads = command.effect == CommandEffect::kReads && command.document != nullptr;
      if (acts ? stores : stores == reads) return false;
      if (stores && command.effect != CommandEffect::kStores) return false;
      found += acts || stores ? 1 : 0;
    }
    return found == std::size(kStoring) + std::size(kActions);
  }
};

int BusinessServer::RunConfigCommand(const std::string& name, ConfigRequest& request) {
  using Commands = ConfigCommands;
  static_assert(Commands::TablesAreWhole());
  const Command* const command = FindCommand(kBusRequestMessage, name);
  if (command == nullptr) {
    SetReplyJsonStatus(request.reply, kErrorType.state, kErrorType.error_msg);
    return 0;
  }
  if (const auto* action = FindByName(Commands::kActions, name)) return action->run(*this, request);
  if (const auto* storing = FindByName(Commands::kStoring, name)) {
    if (storing->accept != nullptr && storing->accept(*this, request.body) == -1) return -1;
    const int result = StoreText(*command->document, StyledText(request.body));
    if (storing->apply != nullptr) storing->apply(*this);
    return result;
  }
  GetKeyValueAndReplyBuf(*command->document, request.reply[kBody]);
  return 0;
}

}  // namespace businessserver
