// The request envelope, shared by both command paths, and the table of configuration commands. A new command is a new
// row in the table of its kind.
#include <algorithm>
#include <exception>
#include <iterator>
#include <utility>

#include "protocol/json_text.h"
#include "server/business_server.h"
#include "server/message_text.h"
#include "server/request.h"

namespace businessserver {

namespace {

constexpr uint32_t kMaxRequestSize = 2047;

template <typename Row, size_t N>
const Row* FindByName(const Row (&rows)[N], const std::string& name) {
  const Row* found = std::find_if(std::begin(rows), std::end(rows), [&](const Row& row) { return name == row.name; });
  return found == std::end(rows) ? nullptr : found;
}

}  // namespace

int BusinessServer::CheckReqMsg(Json::Value& reply, Json::Value& request, const _TagDpMsg* msg) {
  if (msg->data_size == 0 || msg->data_size > kMaxRequestSize) {
    SetReplyJsonStatus(reply, kRequestDataError.state, kRequestDataError.error_msg);
    return -1;
  }
  if (!ParseJson(Payload(msg), request)) {
    SetReplyJsonStatus(reply, kRequestNotJson.state, kRequestNotJson.error_msg);
    return -1;
  }
  return 0;
}

void BusinessServer::SetReplyJsonStatus(Json::Value& reply, int status, const std::string& text) {
  reply[kState] = status;
  reply[kErrorMsg] = text;
}

void BusinessServer::HandleRequest(const _TagDpMsg* msg, const RequestPath& path) {
  Json::Value reply;
  ConfigRequest request{msg, Json::Value(), reply, false};
  SetReplyJsonStatus(reply, kAllDone.state, kAllDone.error_msg);
  try {
    Json::Value document;
    if (CheckReqMsg(reply, document, msg) == 0) {
      if (path.logs_traffic && lxlogging::IsShown(kInfo)) BS_LOG(kInfo) << "bus receive : " << StyledText(document);
      reply[kType] = document[kType];
      const std::string name = reply[kType].asString();
      request.body = std::move(document[kBody]);
      if ((this->*path.run)(name, request) == -1) {
        SetReplyJsonStatus(reply, kSetError.state, kSetError.error_msg);
      }
    }
  } catch (const std::exception& error) {
    SetReplyJsonStatus(reply, kSetError.state, kSetError.error_msg);
    BS_LOG(kError) << error.what();
  }
  if (request.answered) return;
  if (path.logs_traffic) BS_LOG(kInfo) << "SendDpReply : " << TypeName(msg);
  const std::string text = StyledText(reply);
  // Routed by its whole name, so the name ends in a NUL.
  DpClient_SendDpReply(msg->type_name, 0, msg->message_id, text.data(), static_cast<uint32_t>(text.size()));
}

void BusinessServer::OnConfigControl(const _TagDpMsg* msg) {
  BS_LOG(kInfo) << "OnConfigControl " << TypeName(msg) << " start";
  HandleRequest(msg, {&BusinessServer::RunConfigCommand, true});
}

// ---- the commands ----

struct BusinessServer::ConfigCommands {
  // The body is stored as it is, then the component takes up what is stored, whatever the store said.
  struct Storing {
    const char* name;
    const StoredDocument* document;
    int (BusinessServer::*accept)(const Json::Value& body);  // null: anything is accepted
    void (BusinessServer::*apply)();                         // null: stored only
  };
  static constexpr Storing kStoring[] = {
      {kSetTtyioCfg, &kDeviceTtyio, nullptr, &BusinessServer::SetTtyioParity},
      {kSetParkingColorCfg, &kBusLedColor, nullptr, &BusinessServer::InitLedColorCfg},
      {kSetParkingReserveCfg, &kParkingReserve, nullptr, nullptr},
      {kSetEncCfg, &kEncCfg, nullptr, &BusinessServer::InitEncCfg},
      {kSetDevPos, &kDevPos, nullptr, &BusinessServer::ApplyDevPos},
      {kSetExtTtyioCfg, &kExtTtyio, nullptr, &BusinessServer::ApplyExtTtyio},
      {kSetCtrMdl, &kDevCtrlMdl, &BusinessServer::CheckControlModel, &BusinessServer::SetCurLedColor},
      {kSetIbcName, &kIbcName, &BusinessServer::CheckBeaconName, nullptr},
      {kSetIbcBroper, &kIbcBroper, &BusinessServer::CheckBeaconPeriod, nullptr},
      {kSetIbcPow, &kIbcPower, &BusinessServer::CheckBeaconSendPower, nullptr},
      {kSetIbcTxp, &kIbcTxpower, &BusinessServer::CheckBeaconTestPower, nullptr},
  };

  // The component checks, applies and stores the body itself.
  struct Delegated {
    const char* name;
    int (BusinessServer::*set)(const Json::Value& body);
  };
  static constexpr Delegated kDelegated[] = {
      {kSetRs485proCfg, &BusinessServer::ApplyFrameDescription},
      {kSetBt, &BusinessServer::SetBlueToothCfg},
  };

  // The document, or its default, becomes the reply's body.
  struct Reading {
    const char* name;
    const StoredDocument* document;
  };
  static constexpr Reading kReading[] = {
      {kGetTtyioCfg, &kDeviceTtyio},
      {kGetExtTtyioCfg, &kExtTtyio},
      {kGetRs485proCfg, &kRs485pro},
      {kGetParkingColorCfg, &kBusLedColor},
      {kGetParkingReserveCfg, &kParkingReserve},
      {kGetEncCfg, &kEncCfg},
      {kGetCtrMdl, &kDevCtrlMdl},
      {kGetDevPos, &kDevPos},
      {kGetIbcName, &kIbcName},
      {kGetIbcConntime, &kIbcConntime},
      {kGetIbcBroper, &kIbcBroper},
      {kGetIbcId, &kIbcId},
      {kGetIbcPow, &kIbcPower},
      {kGetIbcTxp, &kIbcTxpower},
  };

  // Live state and actions.
  struct Action {
    const char* name;
    int (BusinessServer::*run)(ConfigRequest& request);
  };
  static constexpr Action kActions[] = {
      {kGetBt, &BusinessServer::ReplyBeaconIdentity},
      {kGetFrameStatus, &BusinessServer::ReplyFrameStatus},
      {kGetNetStatus, &BusinessServer::ReplyNetStatus},
      {kGetDeviceFrameStatus, &BusinessServer::ReplyDeviceFrameStatus},
      {kQuaryControledLog, &BusinessServer::ReplyControledLog},
      {kGetLatestIvsresult, &BusinessServer::ReplyLatestResult},
      {kCheckDev, &BusinessServer::RunCheckDev},
      {kSetDevLed, &BusinessServer::RunSetDevLed},
      {kCmd, &BusinessServer::RunShell},
      {kSetIbcConntime, &BusinessServer::Ignore},
      {kSetIbcId, &BusinessServer::Ignore},
      {kGetIbcMac, &BusinessServer::Ignore},
      {kResetIbc, &BusinessServer::Ignore},
  };
};

int BusinessServer::RunConfigCommand(const std::string& name, ConfigRequest& request) {
  using Commands = ConfigCommands;
  if (const auto* command = FindByName(Commands::kStoring, name)) {
    if (command->accept != nullptr && (this->*command->accept)(request.body) == -1) return -1;
    const int result = StoreText(*command->document, StyledText(request.body));
    if (command->apply != nullptr) (this->*command->apply)();
    return result;
  }
  if (const auto* command = FindByName(Commands::kDelegated, name)) return (this->*command->set)(request.body);
  if (const auto* command = FindByName(Commands::kReading, name)) {
    GetKeyValueAndReplyBuf(*command->document, request.reply[kBody]);
    return 0;
  }
  if (const auto* command = FindByName(Commands::kActions, name)) return (this->*command->run)(request);

  SetReplyJsonStatus(request.reply, kErrorType.state, kErrorType.error_msg);
  return 0;
}

}  // namespace businessserver
