#include "devicesdk/led_control.h"

#include <boost/shared_ptr.hpp>

#include "pty_line.h"

namespace businessserver {
namespace {

struct LedTest : BoardTest {
  boost::shared_ptr<LedControl> led_{new LedControl};
};

TEST_F(LedTest, SetsUpTheBankAndLeavesItDark) {
  MakeMemoryDevice();
  SetRegister(kLedGpio + 0x400, 0xFFFFFF41);
  SetRegister(kLedGpio + 0x3FC, 0xFF);
  led_->GPIO_Init();
  for (const off_t pin : {0xE8, 0xEC, 0xF0}) EXPECT_EQ(1u, Register(kPinMux + pin));
  EXPECT_EQ(0xFFFFFF5Du, Register(kLedGpio + 0x400)) << "other pins keep their direction";
  EXPECT_EQ(0u, Register(kLedGpio + 0x3FC));
  led_->OpenLed(3);
  led_->ResetLed();  // of a block that is not there
  led_.reset();
  EXPECT_EQ(255u, Register(kLedGpio + 0x3FC)) << "the LEDs outlive the driver";
}

TEST_F(LedTest, ColoursWithAndWithoutABoard) {
  const struct {
    int color;
    uint32_t pattern;
  } rows[] = {{2, 16}, {5, 12}, {0, 4},  {1, 8},   {3, 255},        {4, 0},
              {6, 20}, {7, 24}, {8, 24}, {-1, 24}, {INT32_MIN, 24}, {INT32_MAX, 24}};
  led_->OpenLed(3);  // nothing to write to yet
  for (const bool board : {false, true}) {
    if (board) MakeMemoryDevice();
    led_->GPIO_Init();
    for (const auto& row : rows) {
      led_->OpenLed(row.color);
      EXPECT_EQ(row.pattern, led_->DataRegister()) << row.color;
    }
  }
  const std::pair<void (LedControl::*)(), uint32_t> methods[] = {
      {&LedControl::LED1_SET, 4},   {&LedControl::LED2_SET, 8},   {&LedControl::LED3_SET, 16},
      {&LedControl::LED12_SET, 12}, {&LedControl::LED13_SET, 20}, {&LedControl::LED23_SET, 24},
      {&LedControl::LED_CLOSE, 0},  {&LedControl::LED_WHITE, 255}};
  for (const auto& [set, pattern] : methods) {
    ((*led_).*set)();
    EXPECT_EQ(pattern, led_->DataRegister()) << pattern;
  }
  std::filesystem::rename("dev/mem", "dev/gone");
  led_->GPIO_Init();  // what was mapped stays
  led_->OpenLed(2);
  std::filesystem::rename("dev/gone", "dev/mem");
  EXPECT_EQ(16u, Register(kLedGpio + 0x3FC));
}

}  // namespace
}  // namespace businessserver
