#include "devicesdk/led_control.h"

#include "log.h"

namespace businessserver {
namespace {

constexpr char kLogSource[] = "lib/businessserver/devicesdk/led_control";

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

void LedControl::LED1_SET() { OpenLed(0); }
void LedControl::LED2_SET() { OpenLed(1); }
void LedControl::LED3_SET() { OpenLed(2); }
void LedControl::LED12_SET() { OpenLed(5); }
void LedControl::LED13_SET() { OpenLed(6); }
void LedControl::LED23_SET() { OpenLed(7); }
void LedControl::LED_WHITE() { OpenLed(3); }
void LedControl::LED_CLOSE() { OpenLed(4); }

void LedControl::OpenLed(int colour) {
  if (const auto pattern = LedPattern(colour)) gpio_.Write(kGpioData, *pattern);
}

void LedControl::LED1_CLEAR() { ClearBit(second_block_, 0); }
void LedControl::LED2_CLEAR() { ClearBit(second_block_, 1); }
void LedControl::ResetLed() {
  LED1_CLEAR();
  LED2_CLEAR();
}

}  // namespace businessserver
