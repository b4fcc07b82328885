// What single configuration commands do. Each returns -1 for failure, which the requester sees as "set error".
#include <cstring>

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

}  // namespace

// ---- checks made before a body is stored ----

int BusinessServer::CheckControlModel(const Json::Value& body) {
  const uint32_t model = body[kModel].asUInt();
  if (model > kMaxControlModel) return -1;
  led_.control_model = model;
  return 0;
}

int BusinessServer::CheckBeaconName(const Json::Value& body) {
  const std::string name = body[kName].asString();
  if (name.size() > kMaxConfiguredNameLength) return -1;
  return Accepted(blue_tooth_->SetBluetoothName(name.data(), static_cast<int>(name.size())));
}

int BusinessServer::CheckBeaconPeriod(const Json::Value& body) {
  return Accepted(blue_tooth_->SetBroardCastPeriod(body[kTime].asInt()));
}

int BusinessServer::CheckBeaconSendPower(const Json::Value& body) {
  return Accepted(blue_tooth_->SetSendPower(body[kPower].asInt()));
}

int BusinessServer::CheckBeaconTestPower(const Json::Value& body) {
  return Accepted(blue_tooth_->SetTestPower(body[kPower].asInt()));
}

// ---- what follows a stored body ----

int BusinessServer::ApplyFrameDescription(const Json::Value& body) { return SetRs485Cfg(StyledText(body)); }

void BusinessServer::ApplyDevPos() {
  InitDevPos();
  PushNetStatus(own_status_, Json::Value());
}

void BusinessServer::ApplyExtTtyio() {
  InitExtProtoConst();
  PushNetStatus(own_status_, Json::Value());
}

// ---- live state ----

int BusinessServer::ReplyBeaconIdentity(ConfigRequest& request) { return GetBlueToothInfo(request.reply[kBody]); }

int BusinessServer::ReplyFrameStatus(ConfigRequest& request) {
  const FrameDetailInfos& counts = net_push_->Counts();
  request.reply[kBody][kTotle] = counts.totle;
  request.reply[kBody][kFree] = counts.free;
  return 0;
}

int BusinessServer::ReplyNetStatus(ConfigRequest& request) {
  GetFrameInfoJs(&net_push_->Counts(), request.reply[kBody]);
  return 0;
}

int BusinessServer::ReplyDeviceFrameStatus(ConfigRequest& request) {
  request.reply[kBody][kFrameStatus] = led_.device_state;
  request.reply[kBody][kLedColor] = led_.current_color;
  return 0;
}

int BusinessServer::ReplyControledLog(ConfigRequest& request) {
  request.reply[kBody] = kvdb_log_->QuaryKvdbLog();
  return 0;
}

// Answers with the raw record instead of a document.
int BusinessServer::ReplyLatestResult(ConfigRequest& request) {
  DpClient_SendDpReply(request.msg->type_name, 0, request.msg->message_id, &last_sent_, sizeof last_sent_);
  request.answered = true;
  return 0;
}

// ---- actions ----

int BusinessServer::RunCheckDev(ConfigRequest& request) {
  StartCheckDev(request.body);
  return 0;
}

int BusinessServer::RunSetDevLed(ConfigRequest& request) {
  if (led_.control_model == 0) return -1;
  SetDevLed(request.body);
  return 0;
}

// Blocks the event loop until the command line has ended, as its senders expect.
int BusinessServer::RunShell(ConfigRequest& request) {
  const std::string command_line = static_cast<const Json::Value&>(request.body)[kCmdline].asString();
  RunShellCommand(command_line.c_str());
  return 0;
}

// Accepted for front ends that send it; the module offers nothing to do.
int BusinessServer::Ignore(ConfigRequest&) { return 0; }

}  // namespace businessserver
