// The documents that the server keeps in the store or reads there: one row each with the key, its exact length and
// its default. Other processes of the device use the same keys with the same lengths.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace businessserver {

struct StoredDocument {
  const char* key;
  uint8_t key_length;  // bytes passed to the store; most keys count their terminating NUL
  int default_index;   // row of DefaultDocument, or kNoDefault
};

constexpr int kDefaultDocuments = 16;
constexpr int kNoDefault = kDefaultDocuments;

// The length counts the key's terminating NUL or leaves it out: other processes know the one that is written here.
template <size_t N>
constexpr StoredDocument Stored(const char (&key)[N], uint8_t key_length, int default_index) {
  if (key_length != N && key_length != N - 1) throw "not this key's length";
  if (default_index < 0 || default_index > kNoDefault) throw "no such default";
  return {key, key_length, default_index};
}

// clang-format off
//                                               key                           length     default
inline constexpr StoredDocument kDeviceTtyio    = Stored("device_ttyio_value",            19,          3);
inline constexpr StoredDocument kExtTtyio       = Stored("ext_ttyio_value",               16,          4);
inline constexpr StoredDocument kRs485pro       = Stored("rs485pro_value",                15,         11);
inline constexpr StoredDocument kBusLedColor    = Stored("bus_led_color_value",           19,          1);
inline constexpr StoredDocument kParkingReserve = Stored("bus_parking_reserve_cfg_value", 29,          0);
inline constexpr StoredDocument kEncCfg         = Stored("enc_cfg_value",                 14,         14);
inline constexpr StoredDocument kDevCtrlMdl     = Stored("bus_dev_ctrl_mdl",              17,         13);
inline constexpr StoredDocument kDevPos         = Stored("bus_dev_pos_value",             18,         15);
inline constexpr StoredDocument kIbcName        = Stored("ibc_name_value",                15,          5);
inline constexpr StoredDocument kIbcConntime    = Stored("ibc_conntime_value",            19,          6);
inline constexpr StoredDocument kIbcBroper      = Stored("ibc_broper_value",              17,          7);
inline constexpr StoredDocument kIbcId          = Stored("ibc_idc_value",                 14,          8);
inline constexpr StoredDocument kIbcPower       = Stored("ibc_power_value",               16,          9);
inline constexpr StoredDocument kIbcTxpower     = Stored("ibc_txpower_value",             18,         12);
inline constexpr StoredDocument kSysBlueTooth   = Stored("sys_blue_tooth_value",          21, kNoDefault);
inline constexpr StoredDocument kControledLog   = Stored("device_controled_log_value",    26, kNoDefault);
// Owned by other processes, read only:
inline constexpr StoredDocument kSysDeviceName  = Stored("sys_device_name_value",         21, kNoDefault);
inline constexpr StoredDocument kSysDeviceInfo  = Stored("sys_device_info_value",         22, kNoDefault);
inline constexpr StoredDocument kAlgAreaPark    = Stored("AVS_ALG_AREA_PARK",             17, kNoDefault);
// Of the relay to the site, which the device does not read:
inline constexpr StoredDocument kSiteMembership = Stored("relay_value",                   11, kNoDefault);
// clang-format on

inline constexpr const StoredDocument* kStoredDocuments[] = {
    &kDeviceTtyio,  &kExtTtyio,     &kRs485pro,      &kBusLedColor,   &kParkingReserve, &kEncCfg,         &kDevCtrlMdl,
    &kDevPos,       &kIbcName,      &kIbcConntime,   &kIbcBroper,     &kIbcId,          &kIbcPower,       &kIbcTxpower,
    &kSysBlueTooth, &kControledLog, &kSysDeviceName, &kSysDeviceInfo, &kAlgAreaPark,    &kSiteMembership,
};

constexpr bool DocumentsAreDistinct() {
  for (const StoredDocument* one : kStoredDocuments) {
    for (const StoredDocument* other : kStoredDocuments) {
      if (one == other) break;
      if (std::string_view(one->key) == other->key) return false;
      if (one->default_index == other->default_index && one->default_index != kNoDefault) return false;
    }
  }
  return true;
}
static_assert(DocumentsAreDistinct(), "a key or a default stands twice");

// The default text of an index, empty for kNoDefault and above. The view's text is NUL-terminated: defaults are stored
// with that NUL counted.
std::string_view DefaultDocument(int index);

}  // namespace businessserver
