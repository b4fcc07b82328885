#include "devicesdk/led_control.h"

#include "log.h"

namespace businessserver {
namespace {

constexpr char kLogSource[] = "lib/businessserver/devicesdk/led_control";

constexpr uint32_t kAllOff = 0;
constexpr uint32_t kWhite = 255;  // Kept: the whole bank, not the three LED bits only.

// Indexed by the colour number of stored configuration and requests, which rely on this order.
constexpr uint32_t kPatterns[] = {
    kLedLine1,              // 0
    kLedLine2,              // 1
    kLedLine3,              // 2
    kWhite,                 // 3
    kAllOff,                // 4
    kLedLine1 | kLedLine2,  // 5
    kLedLine1 | kLedLine3,  // 6
    kLedLine2 | kLedLine3,  // 7
};
constexpr int kColors = sizeof kPatterns / sizeof kPatterns[0];
static_assert(kColors == 8);

void ClearBit(RegisterBlock& block, unsigned bit) { block.Write(kGpioData, block.Read(kGpioData) & ~(1u << bit)); }

}  // namespace

LedControl::~LedControl() { BS_LOG(kLifecycle) << "~LedControl"; }

void LedControl::GPIO_Init() {
  memory_fd_ = OpenMemoryDevice();
  gpio_.Map(memory_fd_, kLedGpioBlock);
  pin_mux_.Map(memory_fd_, kPinMuxBlock);
  pin_mux_.WriteEach(kPinMuxOfLeds, kPinIsGpio);
  gpio_.Write(kGpioDirection, gpio_.Read(kGpioDirection) | kLedLine1 | kLedLine2 | kLedLine3);
  LED_CLOSE();
}

void LedControl::LED1_SET() { gpio_.Write(kGpioData, kLedLine1); }
void LedControl::LED2_SET() { gpio_.Write(kGpioData, kLedLine2); }
void LedControl::LED3_SET() { gpio_.Write(kGpioData, kLedLine3); }
void LedControl::LED12_SET() { gpio_.Write(kGpioData, kLedLine1 | kLedLine2); }
void LedControl::LED13_SET() { gpio_.Write(kGpioData, kLedLine1 | kLedLine3); }
void LedControl::LED23_SET() { gpio_.Write(kGpioData, kLedLine2 | kLedLine3); }
void LedControl::LED_WHITE() { gpio_.Write(kGpioData, kWhite); }
void LedControl::LED_CLOSE() { gpio_.Write(kGpioData, kAllOff); }

void LedControl::OpenLed(int color) {
  if (color >= 0 && color < kColors) gpio_.Write(kGpioData, kPatterns[color]);
}

void LedControl::LED1_CLEAR() { ClearBit(second_block_, 0); }
void LedControl::LED2_CLEAR() { ClearBit(second_block_, 1); }
void LedControl::ResetLed() {
  LED1_CLEAR();
  LED2_CLEAR();
}

}  // namespace businessserver
