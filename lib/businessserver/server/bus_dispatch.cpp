// What arrives from the bus, and who handles it.
#include <string_view>

#include "protocol/json_text.h"
#include "server/business_server.h"
#include "server/message_text.h"

namespace businessserver {

namespace {

// What is subscribed to has a handler, and nothing else has.
template <typename Route, size_t N>
constexpr bool RoutesEachMethod(const Route (&routes)[N]) {
  for (size_t i = 0; i < N; ++i) {
    if (N != kDpMethodCount || std::string_view(routes[i].type) != DP_METHOD[i]) return false;
  }
  return true;
}

}  // namespace

void BusinessServer::OnDpStatusCallBack(DpPollHandle* handle, unsigned status, void* user) {
  if (status == kDpStatusEnding && user != nullptr) static_cast<BusinessServer*>(user)->kvdb_log_->Flush();
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
  BS_GUARDED([&] {
    const std::string_view type = TypeName(msg);
    BS_LOG(kInfo) << type;
    BS_LOG(kInfo) << PayloadText(msg);
    for (const Route& route : kRoutes) {
      if (type == route.type) return (static_cast<BusinessServer*>(user)->*route.handler)(msg);
    }
  });
}

void BusinessServer::OnDpListenMessage(const _TagDpMsg* msg) {
  BS_LOG(kInfo) << "BusinessServer OnDpListenMessage : " << TypeName(msg);
  Json::Value root;
  if (!ParseJson(Payload(msg), root)) {
    BS_LOG(kError) << "OnDpListenMessage Data is not Json";
    return;
  }
  BS_GUARDED([&] {
    const std::string type = root[kType].asString();
    if (type == kSendTtyioData) SendListenedData(root[kBody]);
    if (type == kSetTtyioHalt) SetSerialHalt(root[kBody]);
  });
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
