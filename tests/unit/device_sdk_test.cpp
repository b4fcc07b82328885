#include "devicesdk/device_sdk.h"

#include <boost/shared_ptr.hpp>
#include <stdexcept>

#include "devicesdk/led_control.h"
#include "pty_line.h"

namespace businessserver {
namespace {

class DeviceSdkTest : public BoardTest {
 protected:
  using Chunks = std::vector<std::string>;

  static void Collect(void* data, int len, void* arg) {
    Chunks& chunks = *static_cast<Chunks*>(arg);
    chunks.emplace_back(static_cast<const char*>(data), len);
    if (chunks.back() == "bad") throw std::runtime_error("no memory");
  }
  void SetUp() override {
    MakeMemoryDevice();
    ASSERT_EQ(0, device_->Init());
    device_->SetTtyioReadDataCallback(Collect, &chunks_, DpClient_GetEvtLoopFromPoll(nullptr));
  }

  PtyLine line_{2};
  boost::shared_ptr<DeviceSdk> device_{new DeviceSdk};
  Chunks chunks_;
};

TEST_F(DeviceSdkTest, HandsOverBurstsAsTheyCameDownTheLine) {
  const std::string late("\0\xFF", 2);
  Fake().on_sleep = [&](unsigned) {  // within the gap: still the same burst
    if (Fake().shell.size() == 1) line_.Say(late);
  };
  line_.Say("one");
  Fake().Advance(100);
  line_.Say(std::string(1024, 'a') + std::string(476, 'b'));
  Fake().Advance(100);
  EXPECT_EQ((Chunks{"one" + late, std::string(1024, 'a'), std::string(476, 'b')}), chunks_);
}

TEST_F(DeviceSdkTest, PollsOnAfterAConsumerThrewAndEndsWithTheFacade) {
  line_.Say("bad");
  Fake().Advance(50);
  EXPECT_TRUE(Fake().Logged(3, "no memory"));
  line_.Say("good");
  Fake().Advance(50);
  device_.reset();
  EXPECT_NE(tcflag_t{B9600}, line_.Settings().c_cflag & CBAUD) << "the port is left as it was found";
  line_.Say("to nobody");
  Fake().Advance(50);
  EXPECT_EQ((Chunks{"bad", "good"}), chunks_);
}

TEST_F(DeviceSdkTest, SendsAndLights) {
  line_.Say("dropped by the send");
  EXPECT_EQ(4, device_->SendTtyioData("\xAA\x01\x17\xBB", 4));
  EXPECT_EQ("\xAA\x01\x17\xBB", line_.Heard(4));
  Fake().Advance(20);
  EXPECT_EQ(Chunks{}, chunks_);
  device_->OpenLed(6);
  EXPECT_EQ(20u, Register(kLedGpio + 0x3FC));
  EXPECT_EQ(0, device_->SetTtyioParity(8, 0, 2, 38400));
  EXPECT_EQ(5, device_->SetTtyioParity(9, 0, 1, 300)) << "refused, and the line stays as it was";
  EXPECT_EQ(tcflag_t{B38400 | CSTOPB}, line_.Settings().c_cflag & (CBAUD | CSTOPB));
}

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
  const std::pair<int, uint32_t> rows[] = {{2, 16}, {5, 12}, {0, 4},  {1, 8},   {3, 255},        {4, 0},
                                           {6, 20}, {7, 24}, {8, 24}, {-1, 24}, {INT32_MIN, 24}, {INT32_MAX, 24}};
  led_->OpenLed(3);  // nothing to write to yet
  for (const bool board : {false, true}) {
    if (board) MakeMemoryDevice();
    led_->GPIO_Init();
    for (const auto& [color, pattern] : rows) {
      led_->OpenLed(color);
      EXPECT_EQ(pattern, led_->DataRegister()) << color;
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
