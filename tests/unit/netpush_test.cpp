#include "netpush/netpush.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <stdexcept>
#include <utility>

#include "fake_platform/fake_platform.h"
#include "protocol/json_text.h"

namespace businessserver {
namespace {

Json::Value Parse(const std::string& text) {
  Json::Value value;
  EXPECT_TRUE(ParseJson("[" + text + "]", value));
  return value[0];
}

std::string Device(uint32_t ip, uint32_t tn, uint32_t fn) {
  return std::to_string(ip) + ":" + std::to_string(tn) + "/" + std::to_string(fn) + " ";
}

std::string Controlled(const NetPush& net_push) {
  Json::Value list;
  net_push.GetCmDevList(list);
  std::string text;
  for (const Json::Value& d : list) text += Device(d["ip"].asUInt(), d["tn"].asUInt(), d["fn"].asUInt());
  return text;
}

// Stands in for the server.
int recounts;
void CountRecount(BusinessServer*, uint32_t, uint32_t) { ++recounts; }

TEST(NetPush, CountsAreSummedByPosition) {
  NetPush net_push;
  recounts = 0;
  net_push.SetDataCallback(nullptr, CountRecount);
  net_push.InsertNetList({kOwnGroup, kLoopbackAddress, 3, 1}, Json::Value());
  net_push.InsertNetList({kLeft, 10, 5, 5}, Json::Value());  // replaced below
  net_push.InsertNetList({kLeft, 10, 3, 2}, Json::Value());
  net_push.InsertNetList({kRight, 11, 20, 7}, Json::Value());
  net_push.InsertNetList({kFront, 12, 100, 30}, Json::Value());
  net_push.InsertNetList({4, 14, 1000, 1000}, Json::Value());
  const FrameDetailInfos expected = {126, 40, 3, 1, 3, 2, 20, 7, 100, 30};
  EXPECT_EQ(memcmp(&net_push.Counts(), &expected, sizeof expected), 0);
  EXPECT_EQ(recounts, 6) << "one recount a push";
}

TEST(NetPush, DeviceReportedTwiceCountsOnce) {
  NetPush net_push;
  net_push.InsertNetList({kLeft, 1, 6, 4}, Parse(R"([{"ip":100,"tn":3,"fn":2},{"ip":50,"tn":1,"fn":0}])"));
  net_push.InsertNetList({kRight, 2, 6, 4}, Parse(R"([{"ip":100,"tn":2,"fn":1},{"ip":200,"tn":1,"fn":1}])"));
  EXPECT_EQ(net_push.Counts().r_totles, 4u);
  EXPECT_EQ(net_push.Counts().r_frees, 3u);
  EXPECT_EQ(Controlled(net_push), "50:1/0 100:3/2 200:1/1 ") << "by ip, the first reporter's counts";

  net_push.InsertNetList({kLeft, 1, 6, 4}, Parse(R"([{"ip":100,"tn":4,"fn":4}])"));
  EXPECT_EQ(Controlled(net_push), "50:1/0 100:4/4 200:1/1 ") << "the first reporter may change them";
  net_push.DeleteCmDevFrmDis(1);
  EXPECT_EQ(Controlled(net_push), "200:1/1 ");
}

TEST(NetPush, PushIsAppliedWholeOrNotAtAll) {
  // clang-format off
  const struct { const char* cm_dev; bool applied; const char* controlled; } kRows[] = {
      {"null",                                             true,  ""},
      {"7",                                                true,  ""},
      {"[null]",                                           true,  "0:0/0 "},
      {R"([{"ip":9}])",                                    true,  "9:0/0 "},
      {R"({"ip":9})",                                      false, ""},
      {R"([{"ip":9,"tn":1,"fn":1},7])",                    false, ""},
      {R"([{"ip":9,"tn":1,"fn":1},{"ip":"10.0.0.1"}])",    false, ""},
      {R"([{"ip":9,"tn":1,"fn":1},{"ip":8,"tn":-1}])",     false, ""},
  };
  // clang-format on
  for (const auto& row : kRows) {
    NetPush net_push;
    net_push.InsertNetList({kLeft, 1, 3, 3}, Json::Value());
    recounts = 0;
    net_push.SetDataCallback(nullptr, CountRecount);
    bool applied = true;
    try {
      net_push.InsertNetList({kLeft, 1, 5, 5}, Parse(row.cm_dev));
    } catch (const Json::Exception&) {
      applied = false;
    }
    EXPECT_EQ(applied, row.applied) << row.cm_dev;
    EXPECT_EQ(recounts, row.applied ? 1 : 0) << row.cm_dev;
    net_push.UpdateNetStatus();
    EXPECT_EQ(net_push.Counts().l_totles, row.applied ? 5u : 3u) << row.cm_dev;
    EXPECT_EQ(Controlled(net_push), row.controlled) << row.cm_dev;
  }
}

TEST(NetPush, SilentDevicesAreGoneAfterTwoPeriods) {
  ResetFake();
  NetPush net_push;
  net_push.SetDataCallback(nullptr, CountRecount);
  net_push.Start(70000, DpClient_GetEvtLoopFromPoll(nullptr));
  Fake().Advance(1000);
  const auto push = [&](uint32_t ip) {
    net_push.InsertNetList({kLeft, ip, ip, 0}, Parse(R"([{"ip":)" + std::to_string(ip + 100) + R"(,"tn":1,"fn":1}])"));
  };
  for (uint32_t ip : {1, 2, 4}) push(ip);
  Fake().Advance(70000);
  for (uint32_t ip : {1, 4}) push(ip);
  recounts = 0;
  Fake().Advance(68999);  // just before the second check
  EXPECT_EQ(Controlled(net_push), "101:1/1 102:1/1 104:1/1 ");
  EXPECT_EQ(recounts, 0);
  Fake().Advance(1);
  // The fresh device before the silent one is gone too, until its next push.
  EXPECT_EQ(Controlled(net_push), "104:1/1 ");
  EXPECT_EQ(net_push.Counts().l_totles, 4u);
  EXPECT_EQ(recounts, 1);
  Fake().Advance(70000);
  EXPECT_EQ(net_push.Counts().totle, 0u);
}

TEST(NetPush, IgnoresNewDevicesBeyondTheLimit) {
  const uint32_t limit = NetPush::kMaxDevices;
  for (const bool own_first : {false, true}) {
    ResetFake();
    NetPush net_push;
    if (own_first) net_push.InsertNetList({kLeft, kLoopbackAddress, 1, 0}, Json::Value());
    for (uint32_t ip = 1; ip <= limit; ++ip) net_push.InsertNetList({kLeft, ip, 1, 0}, Json::Value());
    recounts = 0;
    net_push.SetDataCallback(nullptr, CountRecount);
    for (const uint32_t ip : {1, 2}) net_push.InsertNetList({kLeft, limit + ip, 9, 9}, Parse(R"([{"ip":9}])"));
    for (const uint32_t ip : {limit, kLoopbackAddress}) net_push.InsertNetList({kLeft, ip, 2, 0}, Json::Value());
    EXPECT_EQ(net_push.Counts().totle, limit + 3) << "a known device and this one are not new";
    EXPECT_EQ(Controlled(net_push), "");
    EXPECT_EQ(recounts, 4);
    EXPECT_TRUE(Fake().log.size() == 1 && Fake().log[0].level == 3) << "said once";
  }
}

// Ageing by a walk that clears flags on its way and starts again after each erasure.
template <typename List, typename OnErase>
void Walk(List& list, OnErase on_erase) {
  for (auto entry = list.begin(); entry != list.end();) {
    if (std::exchange(entry->second.alive, 0) != 0) {
      ++entry;
    } else {
      on_erase(entry->first);
      list.erase(entry);
      entry = list.begin();
    }
  }
}

TEST(NetPush, AgesLikeTheWalk) {
  std::mt19937 random(4711);
  const auto below = [&](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
  NetPush net_push;
  std::map<uint32_t, DevFrameInfoExt> devices;
  std::map<uint32_t, CmDevFrameInfo> controlled;
  for (int step = 0; step < 8000; ++step) {
    if (below(6) == 0) {
      NetPush::CheckNetList(-1, 0, &net_push);
      Walk(devices, [&](uint32_t ip) {
        for (auto d = controlled.begin(); d != controlled.end();) d = d->second.src == ip ? controlled.erase(d) : ++d;
      });
      Walk(controlled, [](uint32_t) {});
    } else {
      // Each device has a count of its own, so the sum tells which are left.
      const DevFrameInfo info = {below(4), below(12) * 0x15000000u, below(1000000), 0};
      const CmDevFrameInfo cm = {1, info.ip, below(20), below(100), 0};
      Json::Value cm_devs;
      cm_devs[0]["ip"] = cm.ip;
      cm_devs[0]["tn"] = cm.tn;
      net_push.InsertNetList(info, cm_devs);
      const bool taken = controlled.count(cm.ip) != 0 && controlled[cm.ip].src != cm.src;
      devices[info.ip] = {1, info.pos, info.ip, info.totle - (taken ? cm.tn : 0), 0};
      if (!taken) controlled[cm.ip] = cm;
    }
    uint32_t total = 0;
    std::string text;
    for (const auto& [ip, device] : devices) total += device.totle;
    for (const auto& [ip, device] : controlled) text += Device(ip, device.tn, device.fn);
    ASSERT_EQ(net_push.Counts().totle, total) << step;
    ASSERT_EQ(Controlled(net_push), text) << step;
  }
}

TEST(NetPush, ServerMayThrowDuringACheck) {
  ResetFake();
  NetPush net_push;
  net_push.InsertNetList({kLeft, 1, 3, 3}, Json::Value());
  net_push.CheckNetListHandle();
  net_push.SetDataCallback(nullptr, [](BusinessServer*, uint32_t, uint32_t) { throw std::runtime_error("broker"); });
  EXPECT_EQ(NetPush::CheckNetList(-1, 0, &net_push), 0);
  EXPECT_TRUE(Fake().Logged(3, "broker"));
}

}  // namespace
}  // namespace businessserver
