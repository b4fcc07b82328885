// The second, smaller command path: an external controller asks whether it may command the space state, and does.
#include <cstdio>
#include <ctime>
#include <exception>
#include <iterator>

#include "assertion.h"
#include "protocol/commands.h"
#include "server/business_server.h"
#include "server/request.h"

namespace businessserver {

void BusinessServer::OnConfigControl_Ext(const _TagDpMsg* msg) {
  HandleRequest(msg, {&BusinessServer::RunExternalCommand, false});
}

int BusinessServer::RunExternalCommand(const std::string& name, ConfigRequest& request) {
  struct ExternalCommand {
    std::string_view name;
    int (BusinessServer::*run)(ConfigRequest& request);
  };
  static constexpr ExternalCommand kHandlers[] = {
      {kCheckControledDevice, &BusinessServer::CheckControledDevice},
      {kExternalControlFramestatus, &BusinessServer::CommandFrameStatus},
  };
  static_assert(std::size(kHandlers) == CommandsOn(kBusExtRequestMessage), "a command without a handler");
  for (const ExternalCommand& command : kHandlers) {
    if (command.name == name) return (this->*command.run)(request);
  }
  SetReplyJsonStatus(request.reply, kErrorType.state, kErrorType.error_msg);
  return 0;
}

int BusinessServer::CheckControledDevice(ConfigRequest& request) {
  if (!ExternalControlEnabled()) {
    SetReplyJsonStatus(request.reply, kExternalControlOff.state, kExternalControlOff.error_msg);
  }
  return 0;
}

int BusinessServer::CommandFrameStatus(ConfigRequest& request) {
  ExtControlFrameStatus(request.body, request.reply);
  return 0;
}

// Kept in this order: a refused command is recorded and its state kept all the same. The refusal only says that
// nothing shows.
void BusinessServer::ExtControlFrameStatus(const Json::Value& req, Json::Value& reply) {
  ExtLogHandle(req);
  led_.external_state = req[kFrameStatus].asInt();
  SetCurLedColor();
  if (!ExternalControlEnabled()) {
    SetReplyJsonStatus(reply, kExternalControlOff.state, kExternalControlOff.error_msg);
  }
}

// Records who commanded what, once for a run of repeats.
void BusinessServer::ExtLogHandle(const Json::Value& req) {
  const std::string ip = req[kIp].asString();
  const int frame_status = req[kFrameStatus].asInt();
  if (last_control_event_[kLogIp].asString() == ip && last_control_event_[kFrameStatus].asInt() == frame_status) return;
  char time_text[kTimeTextSize];
  GetCurrentTimeStr(time_text);
  last_control_event_[kLogIp] = ip;
  last_control_event_[kFrameStatus] = frame_status;
  last_control_event_[kLogTime] = time_text;
  kvdb_log_->AddKvdbLog(last_control_event_);
}

void BusinessServer::GetCurrentTimeStr(char* out) {
  const time_t now = time(nullptr);
  tm local = {};
  localtime_r(&now, &local);
  const int length = snprintf(out, kTimeTextSize, "%d-%02d-%02d %02d:%02d:%02d", local.tm_year + 1900, local.tm_mon + 1,
                              local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  BS_ASSERT(length > 0 && length < static_cast<int>(kTimeTextSize));
}

}  // namespace businessserver
