// The count records that the devices of a car park exchange. A "frame" is one parking space. An IPv4 address is held
// as a u32 whose memory bytes are the address in network order.
#pragma once

#include <cstdint>

namespace businessserver {

constexpr uint32_t kLoopbackAddress = 0x0100007F;  // 127.0.0.1: this device itself

// Where a device stands, seen from this one.
enum DevicePosition : uint32_t { kOwnGroup = 0, kLeft = 1, kRight = 2, kFront = 3 };

// The aggregated counts. `totle` is the protocol's own spelling.
struct FrameDetailInfos {
  uint32_t totle;
  uint32_t free;
  uint32_t n_totles;  // own group
  uint32_t n_frees;
  uint32_t l_totles;  // left
  uint32_t l_frees;
  uint32_t r_totles;  // right
  uint32_t r_frees;
  uint32_t f_totles;  // front
  uint32_t f_frees;
};

// One device's own counts.
struct DevFrameInfo {
  uint32_t pos;  // DevicePosition
  uint32_t ip;
  uint32_t totle;
  uint32_t free;
};

// An entry of the device list.
struct DevFrameInfoExt {
  uint32_t alive;  // 1: refreshed since the last ageing check
  uint32_t pos;
  uint32_t ip;
  uint32_t totle;
  uint32_t free;
};

// An entry of the controlled-device list: a device whose counts another device reports on its behalf.
struct CmDevFrameInfo {
  uint32_t alive;  // as above
  uint32_t src;    // the reporter
  uint32_t ip;     // the controlled device
  uint32_t tn;     // its spaces
  uint32_t fn;     // its free spaces
};

}  // namespace businessserver
