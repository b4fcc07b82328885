// This device's own counts, the broadcast of the totals, and the counts that neighbours push.
#include <algorithm>

#include "protocol/json_text.h"
#include "server/business_server.h"
#include "server/message_text.h"

namespace businessserver {

namespace {

// What a car park can hold, and what the relay can carry: anything above is taken as corrupt.
constexpr uint32_t kMaxPlausibleSpaces = 0x100000;
constexpr size_t kMaxBroadcastSize = 65536;

unsigned CountEnabledSpaces(const Json::Value& area_document) {
  const Json::Value& frames = area_document[kParkingareacfg][kParkingframe];
  unsigned count = 0;
  for (Json::ArrayIndex i = 0; i < frames.size(); ++i) {
    if (frames[i][kParkingframeenable].asInt() != 0) ++count;
  }
  return count;
}

void Publish(const char* type, const std::string& text) {
  DpClient_SendDpMessage(type, 0, text.data(), static_cast<uint32_t>(text.size()));
}

}  // namespace

void BusinessServer::InitDevPos() {
  BS_GUARDED([this] {
    Json::Value document;
    GetKeyValueAndReplyBuf(kDevPos, document);
    own_status_.pos = document[kPos].asUInt();
  });
}

// What is counted until the first result: the areas that the recognition process was given, else what the device is
// said to watch.
unsigned BusinessServer::CountWatchedSpaces() {
  Json::Value area;
  if (GetKeyValueAndReplyBuf(kAlgAreaPark, area) != 0) return CountEnabledSpaces(area);
  BS_LOG(kLifecycle) << "Get AVS_ALG_AREA_PARK Kvdb failed";
  Json::Value info;
  if (GetKeyValueAndReplyBuf(kSysDeviceInfo, info) == 0) return kSpaces;
  return std::min<unsigned>(info[kParkingNum].asUInt(), kSpaces);
}

void BusinessServer::PushNetStatus(const DevFrameInfo& info, const Json::Value& cm_devs) {
  net_push_->InsertNetList(info, cm_devs);
}

void BusinessServer::PushOwnCounts(uint32_t spaces, uint32_t free) {
  own_status_.totle = spaces;
  own_status_.free = free;
  PushOwnStatus();
}

void BusinessServer::PushOwnStatus() { PushNetStatus(own_status_, Json::Value()); }

void BusinessServer::UpdateNetPushStatus(LX_Parking_Result_Param* param) {
  const auto is_valid = [](const LX_ParkingResult& space) { return space.valid == 1; };
  const auto is_free = [](const LX_ParkingResult& space) { return space.valid == 1 && space.space_status == 0; };
  const auto begin = std::begin(param->spaces);
  const auto end = std::end(param->spaces);
  // Kept: with its first result the device counts in its own group, whatever position was configured.
  own_status_.pos = kOwnGroup;
  PushOwnCounts(static_cast<uint32_t>(std::count_if(begin, end, is_valid)),
                static_cast<uint32_t>(std::count_if(begin, end, is_free)));
}

void BusinessServer::OnNetPush(const _TagDpMsg* msg) {
  BS_LOG(kInfo) << PayloadText(msg);
  BS_GUARDED([&] {
    Json::Value root;
    if (!ParseJson(Payload(msg), root)) return;
    const uint32_t sender = root[kSAddr].asUInt();
    if (sender == 0 || sender == kLoopbackAddress) return;
    PushNetStatus(DevFrameInfo{root[kPos].asUInt(), sender, root[kTotle].asUInt(), root[kFree].asUInt()}, root[kCmDev]);
  });
}

void BusinessServer::OnUpdatePushDataHandle() {
  BS_LOG(kInfo) << "OnUpdatePushDataHandle";
  BroadCastFrameMsg();
}

void BusinessServer::BroadCastFrameMsg() {
  bool plausible = true;
  BS_GUARDED([&] {
    const FrameDetailInfos& counts = net_push_->Counts();
    Json::Value message;
    message[kType] = kFrameChanged;
    Json::Value& body = message[kBody];
    body[kTotle] = counts.totle;
    body[kFree] = counts.free;
    net_push_->GetCmDevList(body[kCmDev]);
    const std::string text = StyledText(message);
    plausible =
        counts.totle <= kMaxPlausibleSpaces && counts.free <= kMaxPlausibleSpaces && text.size() <= kMaxBroadcastSize;
    if (plausible) {
      Publish(kBusBroadcastMessage, text);
    } else {
      net_push_->ClearLists();
      Json::Value request;
      request[kType] = kClearAllDestAddr;
      Publish(kHttpRequestMessageRoot, StyledText(request));
    }
  });
  if (plausible) SendYBTtyioData();
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
