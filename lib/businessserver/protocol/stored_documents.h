// The documents that the server keeps in the store or reads there: one row each with the key, its exact length and
// its default. Other processes of the device use the same keys with the same lengths.
#pragma once

#include <cstdint>
#include <string_view>

namespace businessserver {

struct StoredDocument {
  const char* key;
  uint8_t key_length;  // bytes passed to the store; most keys count their terminating NUL
  int default_index;   // row of DefaultDocument, or kNoDefault
};

constexpr int kNoDefault = 16;
constexpr int kDefaultDocuments = 16;

// Key written with its NUL (sizeof counts it) or without.
#define BS_KEY_WITH_NUL(text) text, sizeof(text)
#define BS_KEY_WITHOUT_NUL(text) text, sizeof(text) - 1

// clang-format off
//                                            key and length                                          default
inline constexpr StoredDocument kDeviceTtyio    = {BS_KEY_WITH_NUL("device_ttyio_value"),                 3};
inline constexpr StoredDocument kExtTtyio       = {BS_KEY_WITH_NUL("ext_ttyio_value"),                    4};
inline constexpr StoredDocument kRs485pro       = {BS_KEY_WITH_NUL("rs485pro_value"),                    11};
inline constexpr StoredDocument kBusLedColor    = {BS_KEY_WITHOUT_NUL("bus_led_color_value"),             1};
inline constexpr StoredDocument kParkingReserve = {BS_KEY_WITHOUT_NUL("bus_parking_reserve_cfg_value"),   0};
inline constexpr StoredDocument kEncCfg         = {BS_KEY_WITH_NUL("enc_cfg_value"),                     14};
inline constexpr StoredDocument kDevCtrlMdl     = {BS_KEY_WITH_NUL("bus_dev_ctrl_mdl"),                  13};
inline constexpr StoredDocument kDevPos         = {BS_KEY_WITH_NUL("bus_dev_pos_value"),                 15};
inline constexpr StoredDocument kIbcName        = {BS_KEY_WITH_NUL("ibc_name_value"),                     5};
inline constexpr StoredDocument kIbcConntime    = {BS_KEY_WITH_NUL("ibc_conntime_value"),                 6};
inline constexpr StoredDocument kIbcBroper      = {BS_KEY_WITH_NUL("ibc_broper_value"),                   7};
inline constexpr StoredDocument kIbcId          = {BS_KEY_WITH_NUL("ibc_idc_value"),                      8};
inline constexpr StoredDocument kIbcPower       = {BS_KEY_WITH_NUL("ibc_power_value"),                    9};
inline constexpr StoredDocument kIbcTxpower     = {BS_KEY_WITH_NUL("ibc_txpower_value"),                 12};
inline constexpr StoredDocument kSysBlueTooth   = {BS_KEY_WITH_NUL("sys_blue_tooth_value"),      kNoDefault};
inline constexpr StoredDocument kControledLog   = {BS_KEY_WITHOUT_NUL("device_controled_log_value"), kNoDefault};
// Owned by other processes, read only:
inline constexpr StoredDocument kSysDeviceName  = {BS_KEY_WITHOUT_NUL("sys_device_name_value"),  kNoDefault};
inline constexpr StoredDocument kSysDeviceInfo  = {BS_KEY_WITH_NUL("sys_device_info_value"),     kNoDefault};
inline constexpr StoredDocument kAlgAreaPark    = {BS_KEY_WITHOUT_NUL("AVS_ALG_AREA_PARK"),      kNoDefault};
// clang-format on

#undef BS_KEY_WITH_NUL
#undef BS_KEY_WITHOUT_NUL

inline constexpr const StoredDocument* kStoredDocuments[] = {
    &kDeviceTtyio,  &kExtTtyio,     &kRs485pro,      &kBusLedColor,   &kParkingReserve, &kEncCfg,   &kDevCtrlMdl,
    &kDevPos,       &kIbcName,      &kIbcConntime,   &kIbcBroper,     &kIbcId,          &kIbcPower, &kIbcTxpower,
    &kSysBlueTooth, &kControledLog, &kSysDeviceName, &kSysDeviceInfo, &kAlgAreaPark,
};

static_assert(kDeviceTtyio.key_length == 19 && kExtTtyio.key_length == 16 && kRs485pro.key_length == 15);
static_assert(kBusLedColor.key_length == 19 && kParkingReserve.key_length == 29 && kEncCfg.key_length == 14);
static_assert(kDevCtrlMdl.key_length == 17 && kDevPos.key_length == 18 && kIbcName.key_length == 15);
static_assert(kIbcConntime.key_length == 19 && kIbcBroper.key_length == 17 && kIbcId.key_length == 14);
static_assert(kIbcPower.key_length == 16 && kIbcTxpower.key_length == 18 && kSysBlueTooth.key_length == 21);
static_assert(kSysDeviceName.key_length == 21 && kSysDeviceInfo.key_length == 22 && kAlgAreaPark.key_length == 17);

// The default text of an index, empty for kNoDefault and above. The view's text is NUL-terminated: defaults are stored
// with that NUL counted.
std::string_view DefaultDocument(int index);

}  // namespace businessserver
