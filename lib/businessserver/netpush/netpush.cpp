#include "netpush/netpush.h"

#include <iterator>
#include <utility>
#include <vector>

#include "assertion.h"
#include "log.h"
#include "protocol/names.h"

namespace businessserver {

namespace {

constexpr char kLogSource[] = "lib/businessserver/netpush/netpush";

// Throws Json::Exception where the list or an entry is of a wrong type. A list that is a text, a number or null names
// none; an entry that is null reads as zeros.
std::vector<CmDevFrameInfo> ReadCmDevs(uint32_t src_ip, const Json::Value& cm_devs) {
  std::vector<CmDevFrameInfo> devices;
  devices.reserve(cm_devs.size());
  for (Json::ArrayIndex i = 0; i < cm_devs.size(); ++i) {
    const Json::Value& device = cm_devs[i];
    devices.push_back({1, src_ip, device[kIp].asUInt(), device[kTn].asUInt(), device[kFn].asUInt()});
  }
  return devices;
}

// Clears the flags of the entries behind the last stale one and returns the first of them: what lies before it is to
// be erased. Kept: fresh entries before a stale one go too (they come back with their next push). The devices of a car
// park age their neighbours by this rule; it is what a walk gives that clears flags as it goes and starts again after
// each erasure.
template <typename List>
typename List::iterator FirstSurvivor(List& list) {
  auto survivor = list.end();
  while (survivor != list.begin() && std::prev(survivor)->second.alive != 0) {
    --survivor;
    survivor->second.alive = 0;
  }
  return survivor;
}

template <typename Predicate>
void EraseIf(std::map<uint32_t, CmDevFrameInfo>& devices, Predicate predicate) {
  for (auto device = devices.begin(); device != devices.end();) {
    device = predicate(device->second) ? devices.erase(device) : std::next(device);
  }
}

}  // namespace

NetPush::~NetPush() { BS_LOG(kLifecycle) << "~NetPush"; }

void NetPush::SetDataCallback(BusinessServer* context, DataCallback callback) {
  context_ = context;
  callback_ = callback;
}

void NetPush::Start(unsigned period_ms, lxconn::EVT_LOOP* loop) {
  check_timer_.Init(loop, CheckNetList, this);
  check_timer_.Start(0, period_ms);
}

int NetPush::CheckNetList(int, short, const void* self) {
  auto* const net_push = static_cast<NetPush*>(const_cast<void*>(self));
  BS_GUARDED([net_push] {
    net_push->CheckNetListHandle();
    net_push->CheckCmListHandle();
  });
  return 0;
}

void NetPush::InsertNetList(const DevFrameInfo& info, const Json::Value& cm_devs) {
  const std::vector<CmDevFrameInfo> reported = ReadCmDevs(info.ip, cm_devs);
  const bool no_room = devices_.size() - devices_.count(kLoopbackAddress) >= kMaxDevices;
  if (no_room && info.ip != kLoopbackAddress && devices_.count(info.ip) == 0) {
    if (!full_) BS_LOG(kError) << "counts of more than " << devices_.size() << " devices, the others are ignored";
    full_ = true;
    UpdateNetStatus();
    return;
  }
  full_ = full_ && no_room;
  devices_[info.ip] = {1, info.pos, info.ip, info.totle, info.free};
  for (const CmDevFrameInfo& device : reported) InsertCmDevList(device);
  UpdateNetStatus();
}

// A device that two neighbours report is counted with the one that was first; the other's own counts lose it.
void NetPush::InsertCmDevList(const CmDevFrameInfo& info) {
  CmDevFrameInfo& known = cm_devices_.try_emplace(info.ip, info).first->second;
  if (known.src == info.src) {
    known = info;
    known.alive = 1;
  } else {
    ReduceNetListFrame(info);
  }
}

int NetPush::ReduceNetListFrame(const CmDevFrameInfo& info) {
  const auto reporter = devices_.find(info.src);
  if (reporter != devices_.end()) {
    reporter->second.totle -= info.tn;
    reporter->second.free -= info.fn;
  }
  return 0;
}

int NetPush::GetCmDevList(Json::Value& out) const {
  for (const auto& [ip, device] : cm_devices_) {
    Json::Value entry;
    entry[kIp] = device.ip;
    entry[kTn] = device.tn;
    entry[kFn] = device.fn;
    out.append(std::move(entry));
  }
  return 0;
}

void NetPush::UpdateNetStatus() {
  FrameDetailInfos sums = {};
  struct {
    uint32_t* spaces;
    uint32_t* free;
  } const by_position[] = {
      {&sums.n_totles, &sums.n_frees},  // kOwnGroup
      {&sums.l_totles, &sums.l_frees},  // kLeft
      {&sums.r_totles, &sums.r_frees},  // kRight
      {&sums.f_totles, &sums.f_frees},  // kFront
  };
  BS_ASSERT(devices_.size() <= kMaxDevices + 1);  // and this one
  for (const auto& [ip, device] : devices_) {
    BS_ASSERT(device.ip == ip);
    if (device.pos >= std::size(by_position)) continue;  // counts from nowhere are no counts
    *by_position[device.pos].spaces += device.totle;
    *by_position[device.pos].free += device.free;
  }
  sums.totle = sums.n_totles + sums.l_totles + sums.r_totles + sums.f_totles;
  sums.free = sums.n_frees + sums.l_frees + sums.r_frees + sums.f_frees;
  counts_ = sums;
  if (callback_ != nullptr) callback_(context_, counts_.totle, counts_.free);
}

void NetPush::CheckNetListHandle() {
  const auto survivor = FirstSurvivor(devices_);
  if (survivor == devices_.begin()) return;

  // What the silent devices reported for goes with them, in one pass over the controlled devices.
  const uint32_t last_silent = std::prev(survivor)->first;
  EraseIf(cm_devices_, [&](const CmDevFrameInfo& device) {
    return device.src <= last_silent && devices_.find(device.src) != devices_.end();
  });
  devices_.erase(devices_.begin(), survivor);
  UpdateNetStatus();
}

void NetPush::CheckCmListHandle() {
  const auto survivor = FirstSurvivor(cm_devices_);
  if (survivor == cm_devices_.begin()) return;
  cm_devices_.erase(cm_devices_.begin(), survivor);
  UpdateNetStatus();
}

void NetPush::ClearLists() {
  cm_devices_.clear();
  devices_.clear();
}

// ---- interface only ----

void NetPush::InsertCmDevsList(uint32_t src_ip, const Json::Value& cm_devs) {
  for (const CmDevFrameInfo& device : ReadCmDevs(src_ip, cm_devs)) InsertCmDevList(device);
}

int NetPush::DeleteCmDevFrmDis(uint32_t src_ip) {
  EraseIf(cm_devices_, [&](const CmDevFrameInfo& device) { return device.src == src_ip; });
  return 0;
}

}  // namespace businessserver
