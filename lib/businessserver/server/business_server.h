// The business server: a switchboard between the message bus, the store and the device's components. It owns the
// components and the state that joins them, and knows order and effects; bytes and decisions are made elsewhere.
// Everything runs on the one thread that calls Start. Methods are grouped under the file that defines them.
#pragma once

#include <json/value.h>

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <string_view>

#include "devicesdk/bluetooth.h"
#include "devicesdk/device_sdk.h"
#include "dkvdb/dkvdbclient.h"
#include "dp_client.h"
#include "evt_timer.h"
#include "kvdblog/kvdb_log.h"
#include "log.h"
#include "netpush/netpush.h"
#include "protocol/frame_info.h"
#include "protocol/names.h"
#include "protocol/parking_result.h"
#include "protocol/stored_documents.h"
#include "rs485pro/rs485pro.h"

namespace businessserver {

// All files of this folder log under one name.
inline constexpr char kLogSource[] = "lib/businessserver/server/business_server";

struct ConfigRequest;
struct RequestPath;

class BusinessServer : public boost::enable_shared_from_this<BusinessServer> {
 public:
  BusinessServer();
  ~BusinessServer();
  BusinessServer(const BusinessServer&) = delete;
  BusinessServer& operator=(const BusinessServer&) = delete;

  // Brings the device up and runs its event loop for ever. Returns 0, and only when an exception ended the loop.
  int Start();

 private:
  friend struct BusinessServerTestAccess;

  // ---- business_server.cpp: lifecycle and the watchdog tick ----
  void ConstInit();
  void LoadConfiguration();
  static int SendBusinessServerWatchDogMsg(int fd, short events, const void* server);
  void WatchDogTick();
  static void RestartSiblings();

  // ---- bus_dispatch.cpp: what arrives, and who handles it ----
  static void OnDpStatusCallBack(DpPollHandle* handle, unsigned status, void* user);
  static void OnDpMsgCallBack(DpPollHandle* handle, const _TagDpMsg* msg, void* user);
  void OnDpListenMessage(const _TagDpMsg* msg);
  void OnDpNameChanged(const _TagDpMsg* msg);
  void OnDpServerChanged(const _TagDpMsg* msg);
  // Publishes a document as a broadcast, in styled text.
  static void BroadCast(const Json::Value& document);

  // ---- result_intake.cpp: recognition results and their republished copy ----
  void OnIvsResult(const _TagDpMsg* msg);
  void SendBusPlateResultMsg(LX_Parking_Result_Param* result);

  // ---- encryption.cpp: settings that are kept, and change nothing ----
  void InitEncCfg();

  // ---- config_requests.cpp: the request envelope ----
  void OnConfigControl(const _TagDpMsg* msg);
  void HandleRequest(const _TagDpMsg* msg, const RequestPath& path);
  static int CheckReqMsg(Json::Value& reply, Json::Value& request, const _TagDpMsg* msg);
  static void SetReplyJsonStatus(Json::Value& reply, int status, const std::string& text);

  // ---- config_commands.cpp: what single commands do ----
  struct ConfigCommands;
  int RunConfigCommand(const std::string& name, ConfigRequest& request);

  // ---- external_control.cpp: the second, smaller command path and its event record ----
  void OnConfigControl_Ext(const _TagDpMsg* msg);
  int RunExternalCommand(const std::string& name, ConfigRequest& request);
  int CheckControledDevice(ConfigRequest& request);
  int CommandFrameStatus(ConfigRequest& request);
  void ExtControlFrameStatus(const Json::Value& req, Json::Value& reply);
  void ExtLogHandle(const Json::Value& req);
  // Writes the local time, "2026-01-31 08:05:09", into a buffer of kTimeTextSize bytes.
  static void GetCurrentTimeStr(char* out);
  static constexpr size_t kTimeTextSize = 128;

  // ---- stored_config.cpp: documents with their defaults ----
  // Fills document from the store or, where the key is missing or unreadable, from its default, which is then stored
  // if the store has answered. Nonzero on success.
  int GetKeyValueAndReplyBuf(const char* key, int key_length, Json::Value& document, int default_index);
  int GetKeyValueAndReplyBuf(const StoredDocument& stored, Json::Value& document);
  // The store library's own result: -1 on failure.
  static int SetKeyValueAndReplyBuf(const char* key, unsigned char key_length, const char* value, int value_length);
  void KeepUnreadable(const char* key, uint16_t key_length, const std::string& text);
  // A document that is JSON and of no use: what goes for it from now on.
  std::string_view ReplaceUnusable(const StoredDocument& stored, const Json::Value& document, const char* problem);
  // False, and nothing is written, when the store did not answer the look-up before.
  bool StoreDefault(const char* key, uint16_t key_length, std::string_view text);
  static int StoreText(const StoredDocument& stored, const std::string& text);

  // ---- serial_line.cpp: the external line's settings, what arrives on it, which output runs when ----
  void SetTtyioParity();
  static void OnReadTtyioDataHandle(void* data, int len, void* arg);
  void SendListenedData(const Json::Value& body);
  void SetSerialHalt(const Json::Value& body);
  void InitExtProtoConst();
  void InitRs485Cfg();
  int SetRs485Cfg(const std::string& text);
  void SendDevRs485ProData(LX_Parking_Result_Param* param);
  void SendSWTtyioData(LX_Parking_Result_Param* param);
  void SendYBTtyioData();
  void RefreshDisplays();

  // ---- led_logic.cpp: state -> colour, direct control, device check ----
  void SetCurLedColor();
  void SetDeviceStatus(int state);
  void PlateResultLedControl(LX_Parking_Result_Param* result);
  void InitLedStatus();
  void InitLedColorCfg();
  void InitDevCtrlMdl();
  void ParkingAreaCfgInitLed(unsigned count);
  void BroadCastLedStatus(int colour);
  void ShowColour(int colour);  // whatever the state says, and says so
  void SetDevLed(const Json::Value& body);
  void StartCheckDev(const Json::Value& body);
  static int HandleCheckDev(int fd, short events, const void* server);
  bool ExternalControlEnabled() const;

  // ---- beacon_config.cpp: what the beacon module is told, and when ----
  void InitIbcCfg();
  void UpdateIbcName();
  int SetBlueToothCfg(const Json::Value& body);
  int GetBlueToothInfo(Json::Value& out);

  // ---- space_counts.cpp: own counts, broadcasts, pushes from neighbours ----
  void InitDevPos();
  unsigned CountWatchedSpaces();
  void PushNetStatus(const DevFrameInfo& info, const Json::Value& cm_devs);
  void PushOwnCounts(uint32_t spaces, uint32_t free);
  void PushOwnStatus();
  void UpdateNetPushStatus(LX_Parking_Result_Param* param);
  void OnNetPush(const _TagDpMsg* msg);
  void OnUpdatePushDataHandle();
  void BroadCastFrameMsg();
  static void GetFrameInfoJs(const FrameDetailInfos* info, Json::Value& out);

  // ---- interface only: other builds of the device call these, nothing here does ----
  void EncryDataCtrl(LX_Parking_Result_Param_Bus* result) const;
  int SendYBTtyioSingleData(unsigned value, unsigned address);
  static uint8_t YbCheckXor(const uint8_t* data, int length) { return Rs485ProBuild::YbCheckXor(data, length); }
  void SetDeviceStatusExt(int state);
  void LedControl();
  int InitBlueTooth();

  struct WatchDog {
    uint32_t key = 0;              // 0: not fed
    uint32_t net_status_tick = 1;  // grows by 2 a tick; above 16 the own counts are pushed
    uint32_t result_silence = 1;   // ticks since the last triggered result
  };
  struct Led {
    bool device_check = false;   // a check_dev test holds the LED
    int device_state = 0;        // from results: 0 free, 1 occupied, 2 reserved, 3 alarm
    int external_state = 0;      // from an external controller, same codes
    uint32_t control_model = 0;  // 0: the LED follows the state; 1: set_dev_led sets it
    int current_colour = 1;      // chosen from the state, not necessarily shown
    uint32_t manual_colour = 0;  // last set by set_dev_led
  };
  struct Beacon {
    uint32_t broadcast_period = 0;  // ms
    int send_power = 0;             // dBm
    int test_power = 0;             // dBm, measured at 1 m
  };
  struct Display {
    uint32_t enabled = 0;
    uint32_t address = 0;
  };
  struct SerialOutput {
    uint32_t halt = 0;   // nonzero: no frame leaves by itself
    uint32_t proto = 0;  // SerialProtocol
    Display front, right, left;
    uint32_t space_addresses[kSpaces] = {};
  };
  struct Encryption {
    uint32_t level = 0;
    std::string key_text;     // base64, as configured
    uint32_t key_length = 0;  // at most 16
  };

  Json::Value last_control_event_;  // the last recorded external-control event
  Json::Value led_colour_cfg_;      // cached document of kBusLedColor
  Json::Value led_colour_broadcast_;
  lxconn::EVT_LOOP* loop_ = nullptr;  // the bus client's
  boost::shared_ptr<DeviceSdk> device_sdk_;
  boost::shared_ptr<KvdbLog> kvdb_log_;
  boost::shared_ptr<NetPush> net_push_;
  boost::shared_ptr<BlueTooth> blue_tooth_;
  lxconn::EVT_TIMER check_dev_timer_;
  boost::shared_ptr<dkvdb::KvdbClient> kvdb_client_;
  bool store_answered_ = false;  // the last look-up of a document
  Rs485ProBuild* rs485_pro_;     // never released: the process ends right after the server

  WatchDog watchdog_;
  Led led_;
  Beacon beacon_;
  SerialOutput serial_output_;
  Encryption encryption_;
  DevFrameInfo own_status_ = {};
  LX_Parking_Result_Param_Bus last_sent_ = {};
};

}  // namespace businessserver
