// The request envelope, shared by both command paths.
#include <exception>
#include <utility>

#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "server/business_server.h"
#include "server/message_text.h"
#include "server/request.h"

namespace businessserver {

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

}  // namespace businessserver
