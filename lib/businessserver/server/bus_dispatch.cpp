// What arrives from the bus, and who handles it.
#include <algorithm>
#include <cstring>
#include <exception>
#include <string_view>

#include "base64.h"
#include "protocol/json_text.h"
#include "server/business_server.h"
#include "server/message_text.h"

namespace businessserver {

namespace {

constexpr int kSerialDataBase64Flag = 21;

// What is subscribed to has a handler, and nothing else has.
template <typename Route, size_t N>
constexpr bool RoutesEachMethod(const Route (&routes)[N]) {
  for (size_t i = 0; i < N; ++i) {
    if (N != kDpMethodCount || std::string_view(routes[i].type) != DP_METHOD[i]) return false;
  }
  return true;
}

}  // namespace

void BusinessServer::OnDpStatusCallBack(DpPollHandle* handle, unsigned status, void*) {
  if (status != kDpStatusDisconnected) return;
  if (DpClient_HdlReConnect(handle) == 1) DpClient_HdlAddListenMessage(handle, DP_METHOD, kDpMethodCount);
}

void BusinessServer::OnDpMsgCallBack(DpPollHandle*, const _TagDpMsg* msg, void* user) {
  struct Route {
    const char* type;
    void (BusinessServer::*handler)(const _TagDpMsg* msg);
  };
  static constexpr Route kRoutes[] = {
      {kAvsSimulatorTrigger, &BusinessServer::OnIvsResult},
      {kAvsParkRectChange, &BusinessServer::OnIvsResult},
      {kBusBroadlistenMessage, &BusinessServer::OnDpListenMessage},
      {kSysDeviceNameChanged, &BusinessServer::OnDpNameChanged},
      {kHttpBroadcastMessageRoot, &BusinessServer::OnDpServerChanged},
      {kBusRequestMessage, &BusinessServer::OnConfigControl},
      {kBusExtRequestMessage, &BusinessServer::OnConfigControl_Ext},
      {kBusNetPush, &BusinessServer::OnNetPush},
  };
  static_assert(RoutesEachMethod(kRoutes), "one route each, in the order of DP_METHOD");
  try {
    const std::string_view type = TypeName(msg);
    BS_LOG(kInfo) << type;
    BS_LOG(kInfo) << PayloadText(msg);
    for (const Route& route : kRoutes) {
      if (type != route.type) continue;
      (static_cast<BusinessServer*>(user)->*route.handler)(msg);
      return;
    }
  } catch (const std::exception& error) {
    BS_LOG(kError) << error.what();
  }
}

void BusinessServer::OnDpListenMessage(const _TagDpMsg* msg) {
  BS_LOG(kInfo) << "BusinessServer OnDpListenMessage : " << TypeName(msg);
  Json::Value root;
  if (!ParseJson(Payload(msg), root)) {
    BS_LOG(kError) << "OnDpListenMessage Data is not Json";
    return;
  }
  try {
    const std::string type = root[kType].asString();
    const Json::Value& body = root[kBody];
    if (type == kSendTtyioData) {
      SendListenedData(body);
    } else if (type == kSetTtyioHalt) {
      serial_output_.halt = static_cast<uint32_t>(body[kHalt].asInt());
    }
  } catch (const std::exception& error) {
    BS_LOG(kError) << error.what();
  }
}

void BusinessServer::SendListenedData(const Json::Value& body) {
  const std::string text = body[kData].asString();
  const int data_len = body[kDataLen].asInt();
  const std::string data = lxbase::Base64::DecodeFromArray(text.data(), text.size(), kSerialDataBase64Flag, nullptr);
  if (data.empty() && !text.empty()) {
    BS_LOG(kError) << "send_ttyio_data: data is not base64, nothing sent";
    return;
  }
  // The sender's count decides, as far as there are bytes to send.
  const int length = std::clamp(data_len, 0, static_cast<int>(data.size()));
  if (length != data_len) {
    BS_LOG(kError) << "send_ttyio_data: data_len " << data_len << " but " << data.size() << " bytes of data";
  }
  device_sdk_->SendTtyioData(data.data(), length);
}

void BusinessServer::OnDpNameChanged(const _TagDpMsg* msg) {
  BS_LOG(kInfo) << "BusinessServer OnDpNameChanged : " << TypeName(msg);
  UpdateIbcName();
}

void BusinessServer::OnDpServerChanged(const _TagDpMsg* msg) {
  // Kept: the same words as for a listen message; log filters in the field match them.
  BS_LOG(kInfo) << "BusinessServer OnDpListenMessage : " << TypeName(msg);
  Json::Value root;
  if (!ParseJson(Payload(msg), root)) {
    BS_LOG(kError) << "OnDpListenMessage Data is not Json";
    return;
  }
  BroadCastFrameMsg();
}

void BusinessServer::BroadCast(const Json::Value& document) {
  const std::string text = StyledText(document);
  DpClient_SendDpMessage(kBusBroadcastMessage, 0, text.data(), static_cast<uint32_t>(text.size()));
}

}  // namespace businessserver
