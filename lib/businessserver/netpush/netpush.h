// The space counts of this device and of the neighbours that push theirs, summed by position. Devices that fall
// silent are aged out. Every recount is handed to the server, which broadcasts it. One thread: the event loop's.
#pragma once

#include <json/value.h>

#include <boost/enable_shared_from_this.hpp>
#include <cstddef>
#include <cstdint>
#include <map>

#include "evt_timer.h"
#include "protocol/frame_info.h"

namespace businessserver {

class BusinessServer;

class NetPush : public boost::enable_shared_from_this<NetPush> {
 public:
  // More devices than any car park has. The list would otherwise grow with whatever is pushed until it is aged out.
  static constexpr size_t kMaxDevices = 16384;

  using DataCallback = void (*)(BusinessServer* context, uint32_t totle, uint32_t free);

  NetPush() = default;
  ~NetPush();

  void SetDataCallback(BusinessServer* context, DataCallback callback);

  // Starts the ageing check on the loop, every period_ms milliseconds, the first one at once.
  void Start(unsigned period_ms, lxconn::EVT_LOOP* loop);

  // The timer's callback; self is the NetPush. Nothing is thrown: an exception of the server's is logged.
  static int CheckNetList(int fd, short events, const void* self);

  // Replaces the sender's entry, takes the devices it reports for, and recounts. cm_devs is null or a list of
  // {"ip", "tn", "fn"}. A push is applied whole or not at all: the list is read before anything changes, and what it
  // holds of a wrong type is thrown as Json::Exception. A push of a new device beyond kMaxDevices is ignored, unless it
  // is this device's own. Linear in the number of devices.
  void InsertNetList(const DevFrameInfo& info, const Json::Value& cm_devs);

  void InsertCmDevList(const CmDevFrameInfo& info);

  // Takes a controlled device's counts off its reporter (info.src), where that is known. Returns 0.
  int ReduceNetListFrame(const CmDevFrameInfo& info);

  // Appends {"ip", "tn", "fn"} of each controlled device to out, by ascending ip; leaves out alone when there is none.
  // Returns 0.
  int GetCmDevList(Json::Value& out) const;

  void UpdateNetStatus();  // recounts and calls back

  // One ageing check of each list: every entry up to and including the last stale one, in order of ip, is removed; the
  // entries after it survive, to be stale at the next check unless pushed again.
  void CheckNetListHandle();
  void CheckCmListHandle();

  // Empties both lists, without a recount: for counts that cannot be true. The counts stay until the next push.
  void ClearLists();

  const FrameDetailInfos& Counts() const { return counts_; }

  // ---- interface only ----

  void InsertCmDevsList(uint32_t src_ip, const Json::Value& cm_devs);  // all or nothing too; no recount
  int DeleteCmDevFrmDis(uint32_t src_ip);                              // drops what this device reported for; returns 0

 private:
  BusinessServer* context_ = nullptr;
  lxconn::EVT_TIMER check_timer_;
  FrameDetailInfos counts_ = {};
  bool full_ = false;  // said once
  DataCallback callback_ = nullptr;
  std::map<uint32_t, CmDevFrameInfo> cm_devices_;  // by the controlled device's ip
  std::map<uint32_t, DevFrameInfoExt> devices_;    // by ip; this device under kLoopbackAddress
};

}  // namespace businessserver
