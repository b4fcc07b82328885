// The space-state indicator: three LED lines on one GPIO bank. Knows colour numbers, not parking states.
#pragma once

#include <boost/enable_shared_from_this.hpp>
#include <cstdint>
#include <iterator>
#include <optional>

#include "devicesdk/register_block.h"

namespace businessserver {

// The value of the data register for a colour number of stored configuration and requests, which rely on this order.
inline constexpr uint32_t kLedPatterns[] = {
    kLedLine1,              // 0
    kLedLine2,              // 1
    kLedLine3,              // 2
    255,                    // 3: white. Kept: the whole bank, not the three LED bits only.
    0,                      // 4: off
    kLedLine1 | kLedLine2,  // 5
    kLedLine1 | kLedLine3,  // 6
    kLedLine2 | kLedLine3,  // 7
};

constexpr int kWhite = 3;

// None for a number that is no colour.
constexpr std::optional<uint32_t> LedPattern(int colour) {
  if (colour < 0 || colour >= static_cast<int>(std::size(kLedPatterns))) return std::nullopt;
  return kLedPatterns[colour];
}

// Every pattern is one store to the whole data register: lines that a method does not name go off.
class LedControl : public boost::enable_shared_from_this<LedControl> {
 public:
  LedControl() = default;
  ~LedControl();  // the LEDs keep their pattern
  LedControl(const LedControl&) = delete;
  LedControl& operator=(const LedControl&) = delete;

  // Routes the pins, makes the three lines outputs, switches all off. A second call opens and maps again; nothing is
  // released.
  void GPIO_Init();

  void LED_CLOSE();  // all off

  // Shows colour 0 to 7; any other number leaves the pattern alone.
  void OpenLed(int colour);

  uint32_t DataRegister() const { return gpio_.Read(kGpioData); }

  // ---- interface only ----

  void LED1_SET();
  void LED2_SET();
  void LED3_SET();
  void LED12_SET();
  void LED13_SET();
  void LED23_SET();
  void LED_WHITE();

  // On a second block that this board does not have: no effect.
  void LED1_CLEAR();
  void LED2_CLEAR();
  void ResetLed();

 private:
  int memory_fd_ = -1;          // kept open
  RegisterBlock second_block_;  // never mapped
  RegisterBlock pin_mux_;
  RegisterBlock gpio_;
};

}  // namespace businessserver
