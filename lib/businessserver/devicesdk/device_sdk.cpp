#include "devicesdk/device_sdk.h"

#include "assertion.h"
#include "log.h"

namespace businessserver {
namespace {

constexpr char kLogSource[] = "lib/businessserver/devicesdk/device_sdk";
constexpr int kChunkLimit = 1024;
constexpr unsigned kPollMilliseconds = 10;

}  // namespace

DeviceSdk::DeviceSdk() : led_(new LedControl), tty_(new TtyioControl) {}

DeviceSdk::~DeviceSdk() {
  tty_->TTY_Clean();
  BS_LOG(kLifecycle) << "~DeviceSdk";
}

int DeviceSdk::Init() {
  led_->GPIO_Init();
  return InitTtyio();
}

void DeviceSdk::InitLed() { led_->GPIO_Init(); }

int DeviceSdk::InitTtyio() {
  tty_->TTY_Ready(TTY_DEV_UART2);  // a failure shows in the next line
  const int code = tty_->TTY_SetParity(8, 0, 1, 9600);
  if (code != kTtyOk) BS_LOG(kError) << "TTYIO Init Failed Num : " << code;
  return code;
}

int DeviceSdk::SetTtyioParity(int databits, int parity, int stopbits, int baudrate) {
  return tty_->TTY_SetParity(databits, parity, stopbits, baudrate);
}

int DeviceSdk::SendTtyioData(const char* data, int len) { return tty_->TTY_Sendn(data, len); }

int64_t DeviceSdk::SendTime(int len) const { return tty_->TTY_SendTime(len); }

void DeviceSdk::OpenLed(int colour) { led_->OpenLed(colour); }

void DeviceSdk::SetTtyioReadDataCallback(Consumer consumer, void* arg, lxconn::EVT_LOOP* loop) {
  consumer_ = consumer;
  consumer_arg_ = arg;
  poll_timer_.Init(loop, HandleReadTtyioData, this);
  poll_timer_.Start(0, kPollMilliseconds);
}

int DeviceSdk::HandleReadTtyioData(int, short, const void* self) {
  const auto* device = static_cast<const DeviceSdk*>(self);
  BS_GUARDED([device] {  // the event loop calls through C
    char chunk[kChunkLimit];
    boost::shared_ptr<TtyioControl> tty = device->tty_;  // outlives the pauses of the read, whatever happens to device
    const int count = tty->TTY_Recvn(chunk, kChunkLimit);
    tty.reset();
    BS_ASSERT(count <= kChunkLimit);
    if (count > 0 && device->consumer_ != nullptr) device->consumer_(chunk, count, device->consumer_arg_);
  });
  return 0;
}

}  // namespace businessserver
