#include "server/business_server.h"

#include <cstring>
#include <exception>

#include "kvdb.h"
#include "shell.h"
#include "watchdog.h"

namespace businessserver {

namespace {

constexpr char kLocalHost[] = "127.0.0.1";
constexpr uint16_t kBusPort = 5291;
constexpr uint16_t kStorePort = 5299;
constexpr unsigned kWatchDogPeriodMs = 4000;
constexpr unsigned kAgeingPeriodMs = 70000;
constexpr uint32_t kNetStatusTickLimit = 16;
constexpr uint32_t kSilentTicksLimit = 21599;  // 24 hours of 4 s ticks, counted from 1
constexpr char kDefaultLogIp[] = "192.168.1.100";
constexpr int kNoFrameStatus = 100;  // no external controller sends it

}  // namespace

BusinessServer::BusinessServer()
    : device_sdk_(new DeviceSdk),
      kvdb_log_(new KvdbLog),
      net_push_(new NetPush),
      blue_tooth_(new BlueTooth),
      kvdb_client_(new dkvdb::KvdbClient),
      rs485_pro_(new Rs485ProBuild) {
  BS_LOG(kInfo) << "New BusinessServer";
}

BusinessServer::~BusinessServer() {
  kvdb_log_->Flush();
  DpClient_Stop();
  kvdb_client_->UinitKvdbClient();
  BS_LOG(kLifecycle) << "~BusinessServer";
}

void BusinessServer::ConstInit() {
  last_control_event_[kLogIp] = kDefaultLogIp;
  last_control_event_[kFrameStatus] = kNoFrameStatus;
  last_control_event_[kLogMsg] = kExternalControl;
  led_colour_broadcast_[kType] = kLedcolorChanged;
  own_status_ = DevFrameInfo{0, kLoopbackAddress, 0, 0};
  for (LX_ParkingResult& space : last_sent_.spaces) {
    memcpy(space.plate, kNoPlate, sizeof kNoPlate);
    space.space_status = 0;
    space.extra_text[0] = '\0';
  }
}

int BusinessServer::Start() {
  ConstInit();
  device_sdk_->Init();
  blue_tooth_->Uart1_Init();
  try {
    watchdog_.key = RegisterWatchDogKey("bus", 3, 20);
    kvdb_client_->InitKvdbClient(kLocalHost, kStorePort);
    DpClient_Init(kLocalHost, kBusPort);
    DpClient_Start(0);
    DpPollHandle* const bus = DpClient_CreatePollHandle(OnDpMsgCallBack, this, OnDpStatusCallBack, 0, 0);
    DpClient_HdlAddListenMessage(bus, DP_METHOD, kDpMethodCount);
    net_push_->SetDataCallback(this,
                               [](BusinessServer* server, uint32_t, uint32_t) { server->OnUpdatePushDataHandle(); });
    loop_ = DpClient_GetEvtLoopFromPoll(bus);
    device_sdk_->SetTtyioReadDataCallback(OnReadTtyioDataHandle, this, loop_);
    LoadConfiguration();
    net_push_->Start(kAgeingPeriodMs, loop_);
    BS_LOG(kInfo) << "Start While";
    lxconn::EVT_TIMER watchdog_timer;
    watchdog_timer.Init(loop_, SendBusinessServerWatchDogMsg, this);
    check_dev_timer_.Init(loop_, HandleCheckDev, this);
    watchdog_timer.Start(0, kWatchDogPeriodMs);
    kvdb_log_->Start(std::string(kControledLog.key, kControledLog.key_length));
    for (;;) DpClient_PollDpMessage(bus, 10);
  } catch (const std::exception& error) {
    BS_LOG(kError) << error.what();
  }
  return 0;
}

void BusinessServer::LoadConfiguration() {
  SetTtyioParity();
  InitEncCfg();
  InitExtProtoConst();
  InitIbcCfg();
  InitDevPos();
  InitLedStatus();
  InitRs485Cfg();
  // Kept: after the LED has been lit, so that the first colour is shown under direct control too.
  InitDevCtrlMdl();
}

int BusinessServer::SendBusinessServerWatchDogMsg(int, short, const void* server) {
  BS_GUARDED([server] { static_cast<BusinessServer*>(const_cast<void*>(server))->WatchDogTick(); });
  return 0;
}

void BusinessServer::WatchDogTick() {
  if (watchdog_.key != 0) FeedDog(watchdog_.key);
  if (watchdog_.net_status_tick > kNetStatusTickLimit) {
    watchdog_.net_status_tick = 1;
    PushNetStatus(own_status_, Json::Value());
  } else {
    watchdog_.net_status_tick += 2;
  }
  if (watchdog_.result_silence > kSilentTicksLimit) {
    watchdog_.result_silence = 1;
    RestartSiblings();
  } else {
    ++watchdog_.result_silence;
  }
  SendYBTtyioData();
  kvdb_log_->Flush();
}

void BusinessServer::RestartSiblings() {
  RunShellCommand("killall watchdog");
  RunShellCommand("killall cpulimit");
  RunShellCommand("killall alg_proc");
  SleepMicroseconds(1000000);
  RunShellCommand("./alg_proc &");
  RunShellCommand("./cpulimit -l 40  -e alg_proc &");
  RunShellCommand("./watchdog -v 2 &");
}

}  // namespace businessserver
