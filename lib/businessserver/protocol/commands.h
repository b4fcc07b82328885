// Every command that a request can carry: one row each with the way that it takes and what it does to the device.
#pragma once

#include <cstddef>
#include <string_view>

#include "protocol/names.h"
#include "protocol/stored_documents.h"

namespace businessserver {

// ---- configuration commands ----
inline constexpr char kGetTtyioCfg[] = "get_ttyio_cfg";
inline constexpr char kSetTtyioCfg[] = "set_ttyio_cfg";
inline constexpr char kGetExtTtyioCfg[] = "get_ext_ttyio_cfg";
inline constexpr char kSetExtTtyioCfg[] = "set_ext_ttyio_cfg";
inline constexpr char kGetRs485proCfg[] = "get_rs485pro_cfg";
inline constexpr char kSetRs485proCfg[] = "set_rs485pro_cfg";
inline constexpr char kGetParkingColorCfg[] = "get_parking_color_cfg";
inline constexpr char kSetParkingColorCfg[] = "set_parking_color_cfg";
inline constexpr char kGetParkingReserveCfg[] = "get_parking_reserve_cfg";
inline constexpr char kSetParkingReserveCfg[] = "set_parking_reserve_cfg";
inline constexpr char kGetEncCfg[] = "get_enc_cfg";
inline constexpr char kSetEncCfg[] = "set_enc_cfg";
inline constexpr char kGetCtrMdl[] = "get_ctr_mdl";
inline constexpr char kSetCtrMdl[] = "set_ctr_mdl";
inline constexpr char kGetDevPos[] = "get_dev_pos";
inline constexpr char kSetDevPos[] = "set_dev_pos";
inline constexpr char kGetIbcName[] = "get_ibc_name";
inline constexpr char kSetIbcName[] = "set_ibc_name";
inline constexpr char kGetIbcConntime[] = "get_ibc_conntime";
inline constexpr char kSetIbcConntime[] = "set_ibc_conntime";
inline constexpr char kGetIbcBroper[] = "get_ibc_broper";
inline constexpr char kSetIbcBroper[] = "set_ibc_broper";
inline constexpr char kGetIbcId[] = "get_ibc_id";
inline constexpr char kSetIbcId[] = "set_ibc_id";
inline constexpr char kGetIbcPow[] = "get_ibc_pow";
inline constexpr char kSetIbcPow[] = "set_ibc_pow";
inline constexpr char kGetIbcTxp[] = "get_ibc_txp";
inline constexpr char kSetIbcTxp[] = "set_ibc_txp";
inline constexpr char kGetIbcMac[] = "get_ibc_mac";
inline constexpr char kResetIbc[] = "reset_ibc";
inline constexpr char kGetBt[] = "get_bt";
inline constexpr char kSetBt[] = "set_bt";
inline constexpr char kGetFrameStatus[] = "get_frame_status";
inline constexpr char kGetNetStatus[] = "get_net_status";
inline constexpr char kGetDeviceFrameStatus[] = "get_device_frame_status";
inline constexpr char kQuaryControledLog[] = "quary_controled_log";
inline constexpr char kGetLatestIvsresult[] = "get_latest_ivsresult";
inline constexpr char kCheckDev[] = "check_dev";
inline constexpr char kSetDevLed[] = "set_dev_led";
inline constexpr char kCmd[] = "cmd";

// Declared for the front end, handled nowhere: both answer as unknown commands.
inline constexpr char kSetCurrentColor[] = "set_current_color";
inline constexpr char kGetParkingAreaCfg[] = "get_parking_area_cfg";

// ---- external-control commands ----
inline constexpr char kCheckControledDevice[] = "check_controled_device";
inline constexpr char kExternalControlFramestatus[] = "external_control_framestatus";

constexpr size_t kMaxRequestSize = 2047;  // bytes, of one request

enum class CommandEffect {
  kReads,   // changes nothing
  kStores,  // changes the stored document
  kActs,    // changes something else, or is accepted and does nothing
};

struct Command {
  std::string_view name;
  std::string_view path;  // the message type that carries it
  CommandEffect effect;
  const StoredDocument* document;  // that it reads or stores; null for none
};

// clang-format off
inline constexpr Command kCommands[] = {
    // name                      path                    effect                  document
    {kGetTtyioCfg,                kBusRequestMessage,     CommandEffect::kReads,  &kDeviceTtyio},
    {kSetTtyioCfg,                kBusRequestMessage,     CommandEffect::kStores, &kDeviceTtyio},
    {kGetExtTtyioCfg,             kBusRequestMessage,     CommandEffect::kReads,  &kExtTtyio},
    {kSetExtTtyioCfg,             kBusRequestMessage,     CommandEffect::kStores, &kExtTtyio},
    {kGetRs485proCfg,             kBusRequestMessage,     CommandEffect::kReads,  &kRs485pro},
    {kSetRs485proCfg,             kBusRequestMessage,     CommandEffect::kStores, &kRs485pro},
    {kGetParkingColorCfg,         kBusRequestMessage,     CommandEffect::kReads,  &kBusLedColor},
    {kSetParkingColorCfg,         kBusRequestMessage,     CommandEffect::kStores, &kBusLedColor},
    {kGetParkingReserveCfg,       kBusRequestMessage,     CommandEffect::kReads,  &kParkingReserve},
    {kSetParkingReserveCfg,       kBusRequestMessage,     CommandEffect::kStores, &kParkingReserve},
    {kGetEncCfg,                  kBusRequestMessage,     CommandEffect::kReads,  &kEncCfg},
    {kSetEncCfg,                  kBusRequestMessage,     CommandEffect::kStores, &kEncCfg},
    {kGetCtrMdl,                  kBusRequestMessage,     CommandEffect::kReads,  &kDevCtrlMdl},
    {kSetCtrMdl,                  kBusRequestMessage,     CommandEffect::kStores, &kDevCtrlMdl},
    {kGetDevPos,                  kBusRequestMessage,     CommandEffect::kReads,  &kDevPos},
    {kSetDevPos,                  kBusRequestMessage,     CommandEffect::kStores, &kDevPos},
    {kGetIbcName,                 kBusRequestMessage,     CommandEffect::kReads,  &kIbcName},
    {kSetIbcName,                 kBusRequestMessage,     CommandEffect::kStores, &kIbcName},
    {kGetIbcConntime,             kBusRequestMessage,     CommandEffect::kReads,  &kIbcConntime},
    {kSetIbcConntime,             kBusRequestMessage,     CommandEffect::kActs,   nullptr},
    {kGetIbcBroper,               kBusRequestMessage,     CommandEffect::kReads,  &kIbcBroper},
    {kSetIbcBroper,               kBusRequestMessage,     CommandEffect::kStores, &kIbcBroper},
    {kGetIbcId,                   kBusRequestMessage,     CommandEffect::kReads,  &kIbcId},
    {kSetIbcId,                   kBusRequestMessage,     CommandEffect::kActs,   nullptr},
    {kGetIbcPow,                  kBusRequestMessage,     CommandEffect::kReads,  &kIbcPower},
    {kSetIbcPow,                  kBusRequestMessage,     CommandEffect::kStores, &kIbcPower},
    {kGetIbcTxp,                  kBusRequestMessage,     CommandEffect::kReads,  &kIbcTxpower},
    {kSetIbcTxp,                  kBusRequestMessage,     CommandEffect::kStores, &kIbcTxpower},
    {kGetIbcMac,                  kBusRequestMessage,     CommandEffect::kReads,  nullptr},
    {kResetIbc,                   kBusRequestMessage,     CommandEffect::kActs,   nullptr},
    {kGetBt,                      kBusRequestMessage,     CommandEffect::kReads,  nullptr},
    {kSetBt,                      kBusRequestMessage,     CommandEffect::kStores, &kSysBlueTooth},
    {kGetFrameStatus,             kBusRequestMessage,     CommandEffect::kReads,  nullptr},
    {kGetNetStatus,               kBusRequestMessage,     CommandEffect::kReads,  nullptr},
    {kGetDeviceFrameStatus,       kBusRequestMessage,     CommandEffect::kReads,  nullptr},
    {kQuaryControledLog,          kBusRequestMessage,     CommandEffect::kReads,  &kControledLog},
    {kGetLatestIvsresult,         kBusRequestMessage,     CommandEffect::kReads,  nullptr},
    {kCheckDev,                   kBusRequestMessage,     CommandEffect::kActs,   nullptr},
    {kSetDevLed,                  kBusRequestMessage,     CommandEffect::kActs,   nullptr},
    {kCmd,                        kBusRequestMessage,     CommandEffect::kActs,   nullptr},
    {kCheckControledDevice,       kBusExtRequestMessage,  CommandEffect::kReads,  nullptr},
    {kExternalControlFramestatus, kBusExtRequestMessage,  CommandEffect::kActs,   nullptr},
};
// clang-format on

// The row of a command on its path, or null.
constexpr const Command* FindCommand(std::string_view path, std::string_view name) {
  for (const Command& command : kCommands) {
    if (command.name == name && command.path == path) return &command;
  }
  return nullptr;
}

constexpr size_t CommandsOn(std::string_view path) {
  size_t count = 0;
  for (const Command& command : kCommands) count += command.path == path ? 1 : 0;
  return count;
}

// What a name alone tells, of a command that is not listed too: whoever may read may send the first kind, whoever may
// configure both.
constexpr bool IsReadingName(std::string_view name) {
  return name.substr(0, 4) == "get_" || name.substr(0, 6) == "quary_";
}
constexpr bool IsConfiguringName(std::string_view name) {
  return name.substr(0, 4) == "set_" || name.substr(0, 6) == "reset_";
}

constexpr bool CommandsAreSound() {
  for (const Command& command : kCommands) {
    if (FindCommand(command.path, command.name) != &command) return false;
    if (command.effect == CommandEffect::kStores && command.document == nullptr) return false;
    if (command.path != kBusRequestMessage) continue;
    if ((command.effect == CommandEffect::kReads) != IsReadingName(command.name)) return false;
    if (command.effect == CommandEffect::kStores && !IsConfiguringName(command.name)) return false;
  }
  return true;
}
static_assert(CommandsAreSound(), "a name stands twice, or does not say what the command does");

}  // namespace businessserver
