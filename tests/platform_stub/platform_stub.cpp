// A board without a bus, a store or devices: every call has its contract's answer for a service that is not there.
// The third pass of the loop throws, so that the program shuts down and the whole of its life can be looked at.
#include <cstdio>
#include <stdexcept>

#include "base64.h"
#include "board_paths.h"
#include "bus_requests.h"
#include "dp_client.h"
#include "evt_timer.h"
#include "hub_client.h"
#include "kvdb.h"
#include "lx_logging.h"
#include "shell.h"
#include "watchdog.h"

namespace board {
const char kMemoryDevice[] = "no-such-directory/mem";
const char kSerialDeviceFormat[] = "no-such-directory/ttyAMA%d";
}  // namespace board

int InitLxLogging(int, char**) { return 1; }
void ExitLxLogging() {}

namespace lxlogging {
bool IsShown(int) { return true; }
CLxLogStream::CLxLogStream(int level, const char* source_file, int source_line, int)
    : shown_(true), level_(level), source_file_(source_file), source_line_(source_line) {}
CLxLogStream::~CLxLogStream() {
  std::fprintf(stderr, "stub: %d %s:%d %s\n", level_, source_file_, source_line_, text_.c_str());
}
}  // namespace lxlogging

uint32_t RegisterWatchDogKey(const char*, int, int) { return 0; }
void FeedDog(uint32_t) {}
void ReportProgress() {}

namespace lxbase {
std::string Base64::EncodeFromArray(const void*, size_t) { return {}; }
std::string Base64::DecodeFromArray(const char*, size_t, int, int* decoded_size) {
  if (decoded_size != nullptr) *decoded_size = -1;
  return {};
}
}  // namespace lxbase

int RunShellCommand(const char*) { return -1; }
void SleepMicroseconds(unsigned) {}

int Kvdb_Start(const char*, uint16_t) { return -1; }
int Kvdb_Stop() { return 1; }
int Kvdb_SetKey(const char*, uint16_t, const char*, uint32_t) { return -1; }
int Kvdb_GetKey(const char*, uint16_t, KvdbGetCallback, void*) { return -1; }
int Kvdb_GetKeyAbsolutely(const char*, uint16_t, KvdbGetCallback, void*) { return -1; }
int Kvdb_DeleteKey(const char*, uint16_t) { return -1; }
int Kvdb_KeepUnreadable(const char*, uint16_t, const char*, uint32_t) { return -1; }
int Kvdb_BackupDatabase() { return -1; }
int Kvdb_RestoreDatabase() { return -1; }

namespace lxconn {
class EVT_LOOP {};
struct EVT_TIMER::Impl {};
EVT_TIMER::EVT_TIMER() = default;
EVT_TIMER::~EVT_TIMER() = default;
int EVT_TIMER::Init(EVT_LOOP* loop, EVT_CALLBACK callback, const void*) {
  return loop != nullptr && callback != nullptr ? 0 : -1;
}
int EVT_TIMER::Start(unsigned, unsigned) { return 0; }
}  // namespace lxconn

struct DpPollHandle {
  lxconn::EVT_LOOP loop;
  int passes = 0;
};

int DpClient_Init(const char*, uint16_t) { return 1; }
void DpClient_UseAccount(const char*) {}
int DpClient_Start(int) { return 1; }
int DpClient_Stop() { return 1; }
DpPollHandle* DpClient_CreatePollHandle(DpMsgCallback, void*, DpStatusCallback, int, int) {
  static DpPollHandle handle;
  return &handle;
}
int DpClient_HdlAddListenMessage(DpPollHandle*, const char* const*, int) { return -1; }
int DpClient_HdlReConnect(DpPollHandle*) { return -1; }
lxconn::EVT_LOOP* DpClient_GetEvtLoopFromPoll(DpPollHandle* handle) { return &handle->loop; }
int DpClient_PollDpMessage(DpPollHandle* handle, int) {
  if (++handle->passes == 3) throw std::runtime_error("the stub's third pass");
  return 1;
}
int DpClient_SendDpMessage(const char*, int, const void*, uint32_t) { return -1; }
int DpClient_SendDpReply(const char*, int, uint32_t, const void*, uint32_t) { return -1; }

namespace lxconn {
struct HubClient::Impl {};
HubClient::HubClient(EVT_LOOP*, Listener*) {}
HubClient::~HubClient() = default;
void HubClient::Connect(const HubAddress&) {}
void HubClient::Disconnect() {}
bool HubClient::Subscribe(const std::vector<std::string>&) { return false; }
bool HubClient::Unsubscribe(const std::vector<std::string>&) { return false; }
bool HubClient::Publish(const HubPublication&) { return false; }

struct BusRequester::Impl {};
BusRequester::BusRequester(EVT_LOOP*, const char*, uint16_t, const char*, AnswerCallback, void*) {}
BusRequester::~BusRequester() = default;
bool BusRequester::Ask(const char*, uint64_t, std::string_view) { return false; }
}  // namespace lxconn
