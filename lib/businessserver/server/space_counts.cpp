// This device's own counts, the broadcast of the totals, and the counts that neighbours push.
#include <algorithm>
#include <exception>

#include "protocol/json_text.h"
#include "server/business_server.h"
#include "server/message_text.h"

namespace businessserver {

namespace {

// What a car park can hold, and what the relay can carry: anything above is taken as corrupt.
constexpr uint32_t kMaxPlausibleSpaces = 0x100000;
constexpr size_t kMaxBroadcastSize = 65536;

}  // namespace

void BusinessServer::PushNetStatus(const DevFrameInfo& info, const Json::Value& cm_devs) {
  net_push_->InsertNetList(info, cm_devs);
}

void BusinessServer::UpdateNetPushStatus(LX_Parking_Result_Param* param) {
  const auto is_valid = [](const LX_ParkingResult& space) { return space.valid == 1; };
  const auto is_free = [](const LX_ParkingResult& space) { return space.valid == 1 && space.space_status == 0; };
  const auto begin = std::begin(param->spaces);
  const auto end = std::end(param->spaces);
  // Kept: with its first result the device counts in its own group, whatever position was configured.
  own_status_.pos = kOwnGroup;
  own_status_.ip = kLoopbackAddress;
  own_status_.totle = static_cast<uint32_t>(std::count_if(begin, end, is_valid));
  own_status_.free = static_cast<uint32_t>(std::count_if(begin, end, is_free));
  PushNetStatus(own_status_, Json::Value());
}

void BusinessServer::OnNetPush(const _TagDpMsg* msg) {
  BS_LOG(kInfo) << PayloadText(msg);
  try {
    Json::Value root;
    if (!ParseJson(Payload(msg), root)) return;
    const uint32_t sender = root[kSAddr].asUInt();
    if (sender == 0 || sender == kLoopbackAddress) return;
    PushNetStatus(DevFrameInfo{root[kPos].asUInt(), sender, root[kTotle].asUInt(), root[kFree].asUInt()}, root[kCmDev]);
  } catch (const std::exception& error) {
    BS_LOG(kError) << error.what();
  }
}

void BusinessServer::OnUpdatePushDataHandle() {
  BS_LOG(kInfo) << "OnUpdatePushDataHandle";
  BroadCastFrameMsg();
}

void BusinessServer::BroadCastFrameMsg() {
  try {
    const FrameDetailInfos& counts = net_push_->Counts();
    Json::Value message;
    message[kType] = kFrameChanged;
    Json::Value& body = message[kBody];
    body[kTotle] = counts.totle;
    body[kFree] = counts.free;
    net_push_->GetCmDevList(body[kCmDev]);
    const std::string text = StyledText(message);
    if (counts.totle > kMaxPlausibleSpaces || counts.free > kMaxPlausibleSpaces || text.size() > kMaxBroadcastSize) {
      net_push_->ClearLists();
      Json::Value request;
      request[kType] = kClearAllDestAddr;
      const std::string request_text = StyledText(request);
      DpClient_SendDpMessage(kHttpRequestMessageRoot, 0, request_text.data(),
                             static_cast<uint32_t>(request_text.size()));
      return;
    }
    DpClient_SendDpMessage(kBusBroadcastMessage, 0, text.data(), static_cast<uint32_t>(text.size()));
  } catch (const std::exception& error) {
    BS_LOG(kError) << error.what();
  }
  SendYBTtyioData();
}

void BusinessServer::GetFrameInfoJs(const FrameDetailInfos* info, Json::Value& out) {
  struct Count {
    const char* key;
    uint32_t FrameDetailInfos::*field;
  };
  static constexpr Count kCounts[] = {
      {kTotle, &FrameDetailInfos::totle},      {kFree, &FrameDetailInfos::free},
      {kNTotles, &FrameDetailInfos::n_totles}, {kNFrees, &FrameDetailInfos::n_frees},
      {kLTotles, &FrameDetailInfos::l_totles}, {kLFrees, &FrameDetailInfos::l_frees},
      {kRTotles, &FrameDetailInfos::r_totles}, {kRFrees, &FrameDetailInfos::r_frees},
      {kFTotles, &FrameDetailInfos::f_totles}, {kFFrees, &FrameDetailInfos::f_frees},
  };
  for (const Count& count : kCounts) out[count.key] = info->*count.field;
}

}  // namespace businessserver
