// Every name that crosses the bus or the store, spelled once; those of the commands are in commands.h. Misspellings
// are the protocol's own and are kept.
#pragma once

namespace businessserver {

// ---- bus message types ----
inline constexpr char kAvsSimulatorTrigger[] = "AVS_SIMULATOR_TRIGGER";
inline constexpr char kAvsParkRectChange[] = "AVS_PARK_RECT_CHANGE";
inline constexpr char kBusBroadlistenMessage[] = "BUS_BROADLISTEN_MESSAGE";
inline constexpr char kSysDeviceNameChanged[] = "SYS_DEVICE_NAME_CHANGED";
inline constexpr char kHttpBroadcastMessageRoot[] = "HTTP_BROADCAST_MESSAGE_ROOT";
inline constexpr char kBusRequestMessage[] = "BUS_REQUEST_MESSAGE";
inline constexpr char kBusExtRequestMessage[] = "BUS_EXT_REQUEST_MESSAGE";
inline constexpr char kBusNetPush[] = "BUS_NET_PUSH";
inline constexpr char kBusBroadcastMessage[] = "BUS_BROADCAST_MESSAGE";
inline constexpr char kBusSimulatorTrigger[] = "BUS_SIMULATOR_TRIGGER";
inline constexpr char kHttpRequestMessageRoot[] = "HTTP_REQUEST_MESSAGE_ROOT";

// What the server listens to, in the order of subscription.
inline constexpr const char* DP_METHOD[] = {
    kAvsSimulatorTrigger,      kAvsParkRectChange, kBusBroadlistenMessage, kSysDeviceNameChanged,
    kHttpBroadcastMessageRoot, kBusRequestMessage, kBusExtRequestMessage,  kBusNetPush,
};
inline constexpr int kDpMethodCount = sizeof DP_METHOD / sizeof DP_METHOD[0];
static_assert(kDpMethodCount == 8);

// ---- request and reply envelope ----
inline constexpr char kType[] = "type";
inline constexpr char kBody[] = "body";
inline constexpr char kState[] = "state";
inline constexpr char kErrorMsg[] = "error_msg";

struct RequestStatus {
  int state;
  const char* error_msg;
};
inline constexpr RequestStatus kAllDone = {200, "All done"};
inline constexpr RequestStatus kRequestDataError = {401, "request data is Error"};
inline constexpr RequestStatus kRequestNotJson = {402, "request data is not json"};
inline constexpr RequestStatus kErrorType = {403, "error type"};
inline constexpr RequestStatus kSetError = {404, "set error"};
inline constexpr RequestStatus kExternalControlOff = {405, "device don`t open external control"};

// ---- broadcast and listen message types (the "type" of their documents) ----
inline constexpr char kSendTtyioData[] = "send_ttyio_data";
inline constexpr char kSetTtyioHalt[] = "set_ttyio_halt";
inline constexpr char kTtyioDataBro[] = "ttyio_data_bro";
inline constexpr char kLedcolorChanged[] = "ledcolor_changed";
inline constexpr char kFramestatusChanged[] = "framestatus_changed";
inline constexpr char kFrameChanged[] = "frame_changed";
inline constexpr char kClearAllDestAddr[] = "ClearAllDestAddr";

// ---- keys of documents ----
inline constexpr char kData[] = "data";
inline constexpr char kDataLen[] = "data_len";
inline constexpr char kHalt[] = "halt";
inline constexpr char kLevel[] = "level";
inline constexpr char kModel[] = "model";
inline constexpr char kPos[] = "pos";
inline constexpr char kName[] = "name";
inline constexpr char kTime[] = "time";
inline constexpr char kPower[] = "power";
inline constexpr char kLed[] = "led";
inline constexpr char kLedColor[] = "led_color";
inline constexpr char kCmdline[] = "cmdline";
inline constexpr char kUuid[] = "uuid";
inline constexpr char kMajor[] = "major";
inline constexpr char kMinor[] = "minor";
inline constexpr char kDevicename[] = "devicename";
inline constexpr char kParkingNum[] = "parking_num";
inline constexpr char kParkingareacfg[] = "parkingareacfg";
inline constexpr char kParkingframe[] = "parkingframe";
inline constexpr char kParkingframeenable[] = "parkingframeenable";

inline constexpr char kTtyionum[] = "ttyionum";
inline constexpr char kBaudrate[] = "baudrate";
inline constexpr char kCheckbit[] = "checkbit";
inline constexpr char kDatabit[] = "databit";
inline constexpr char kStopbit[] = "stopbit";

inline constexpr char kProto[] = "proto";
inline constexpr char kFEna[] = "f_ena";
inline constexpr char kFAddr[] = "f_addr";
inline constexpr char kREna[] = "r_ena";
inline constexpr char kRAddr[] = "r_addr";
inline constexpr char kLEna[] = "l_ena";
inline constexpr char kLAddr[] = "l_addr";
inline constexpr const char* kFrameAddr[] = {"frame1_addr", "frame2_addr", "frame3_addr"};

inline constexpr char kExternalcontrolEnable[] = "externalcontrol_enable";
inline constexpr char kParkingledcolorcfg[] = "parkingledcolorcfg";
inline constexpr char kParkingfreeledcolor[] = "parkingfreeledcolor";
inline constexpr char kParkingoccupyledcolor[] = "parkingoccupyledcolor";
inline constexpr char kParkingretainledcolor[] = "parkingretainledcolor";
inline constexpr char kParkingalarmledcolor[] = "parkingalarmledcolor";

inline constexpr char kProCfg[] = "pro_cfg";

inline constexpr char kTotle[] = "totle";
inline constexpr char kFree[] = "free";
inline constexpr char kNTotles[] = "n_totles";
inline constexpr char kNFrees[] = "n_frees";
inline constexpr char kLTotles[] = "l_totles";
inline constexpr char kLFrees[] = "l_frees";
inline constexpr char kRTotles[] = "r_totles";
inline constexpr char kRFrees[] = "r_frees";
inline constexpr char kFTotles[] = "f_totles";
inline constexpr char kFFrees[] = "f_frees";
inline constexpr char kCmDev[] = "cm_dev";
inline constexpr char kSAddr[] = "s_addr";
inline constexpr char kIp[] = "ip";
inline constexpr char kTn[] = "tn";
inline constexpr char kFn[] = "fn";

inline constexpr char kFrameStatus[] = "frame_status";
inline constexpr char kLogIp[] = "log_ip";
inline constexpr char kLogMsg[] = "log_msg";
inline constexpr char kLogTime[] = "log_time";
inline constexpr char kLogIndex[] = "log_index";
inline constexpr char kLogs[] = "logs";
inline constexpr char kExternalControl[] = "external_control";

}  // namespace businessserver
