// The platform that played daemons call: everything goes to the device whose daemon runs.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "base64.h"
#include "board_paths.h"
#include "dp_client.h"
#include "evt_timer.h"
#include "kvdb.h"
#include "lx_logging.h"
#include "shell.h"
#include "watchdog.h"
#include "years/daemon.h"
#include "years/device.h"

using years::Daemon;
using years::kMillisecond;
using years::Micros;
using years::Store;

namespace {

// Timers of this period or less only look whether something has come: they run when it has.
constexpr unsigned kIdlePollMs = 10;

Daemon& Running() {
  Daemon::Current()->Call();
  return *Daemon::Current();
}

int ResultOf(Store::Answer answer) {
  switch (answer) {
    case Store::Answer::kDone:
      return 1;
    case Store::Answer::kMissing:
      return 0;
    case Store::Answer::kFailed:
      return -1;
  }
  return -1;
}

std::string Bytes(const void* data, size_t size) { return std::string(static_cast<const char*>(data), size); }

}  // namespace

namespace board {
const char kMemoryDevice[] = "/years/mem";
const char kSerialDeviceFormat[] = "/years/tty%d";
}  // namespace board

// ---- event loop ----

namespace lxconn {

class EVT_LOOP {};

struct EVT_TIMER::Impl {
  struct State {
    EVT_CALLBACK callback = nullptr;
    const void* user = nullptr;
    Micros period = 0;
    uint64_t arming = 0;  // grows with each: an older one that falls due is none
  };
  std::shared_ptr<State> state = std::make_shared<State>();

  static void Arm(Daemon& daemon, const std::shared_ptr<State>& state, Micros due) {
    daemon.Do(due, [&daemon, due, weak = std::weak_ptr<State>(state), arming = state->arming] {
      const std::shared_ptr<State> state = weak.lock();
      if (!state || state->arming != arming) return;
      if (state->period != 0) Arm(daemon, state, std::max(due + state->period, daemon.now()));
      state->callback(-1, 1, state->user);
    });
  }
};

EVT_TIMER::EVT_TIMER() : impl_(new Impl) {}
EVT_TIMER::~EVT_TIMER() = default;

int EVT_TIMER::Init(EVT_LOOP* loop, EVT_CALLBACK callback, const void* user) {
  if (loop == nullptr || callback == nullptr) return -1;
  impl_->state->callback = callback;
  impl_->state->user = user;
  return 0;
}

int EVT_TIMER::Start(unsigned first_delay_ms, unsigned period_ms) {
  Impl::State& state = *impl_->state;
  if (state.callback == nullptr) return -1;
  Daemon& daemon = Running();
  ++state.arming;
  state.period = period_ms * kMillisecond;
  if (period_ms != 0 && period_ms <= kIdlePollMs) {
    daemon.device().line_poll = [weak = std::weak_ptr<Impl::State>(impl_->state)] {
      if (const auto timer = weak.lock()) timer->callback(-1, 1, timer->user);
    };
  } else {
    Impl::Arm(daemon, impl_->state, daemon.now() + first_delay_ms * kMillisecond);
  }
  return 0;
}

}  // namespace lxconn

// ---- bus ----

int DpClient_Init(const char*, uint16_t) { return 1; }
int DpClient_Start(int) { return 1; }
int DpClient_Stop() { return 1; }

DpPollHandle* DpClient_CreatePollHandle(DpMsgCallback on_message, void* user, DpStatusCallback on_status, int, int) {
  Daemon& daemon = Running();
  daemon.on_message = on_message;
  daemon.on_status = on_status;
  daemon.user = user;
  daemon.device().ConnectDaemon();
  return nullptr;
}

int DpClient_HdlAddListenMessage(DpPollHandle*, const char* const* type_names, int count) {
  Daemon& daemon = Running();
  daemon.subscriptions.insert(type_names, type_names + count);
  return 1;
}

int DpClient_HdlReConnect(DpPollHandle*) { return Running().device().ConnectDaemon() ? 1 : -1; }

lxconn::EVT_LOOP* DpClient_GetEvtLoopFromPoll(DpPollHandle*) {
  static lxconn::EVT_LOOP loop;
  return &loop;
}

int DpClient_PollDpMessage(DpPollHandle*, int) {
  Running().Suspend();
  return 1;
}

int DpClient_SendDpMessage(const char* type_name, int, const void* data, uint32_t size) {
  Daemon& daemon = Running();
  daemon.device().PublishedByDaemon(type_name, Bytes(data, size), daemon.now());
  return 1;
}

int DpClient_SendDpReply(const char*, int, uint32_t message_id, const void* data, uint32_t size) {
  Daemon& daemon = Running();
  daemon.device().Replied(message_id, Bytes(data, size), daemon.now());
  return 1;
}

// ---- store ----

int Kvdb_Start(const char*, uint16_t) { return 1; }
int Kvdb_Stop() { return 1; }

int Kvdb_SetKey(const char* key, uint16_t key_length, const char* value, uint32_t value_length) {
  Daemon& daemon = Running();
  return ResultOf(daemon.device().store.Set(Bytes(key, key_length), Bytes(value, value_length), daemon.now()));
}

int Kvdb_GetKey(const char* key, uint16_t key_length, KvdbGetCallback callback, void* user) {
  Daemon& daemon = Running();
  std::string value;
  const int result = ResultOf(daemon.device().store.Get(Bytes(key, key_length), &value, daemon.now()));
  if (result == 1) callback(key, key_length, value.data(), static_cast<int>(value.size()), user);
  return result;
}

int Kvdb_GetKeyAbsolutely(const char* key, uint16_t key_length, KvdbGetCallback callback, void* user) {
  return Kvdb_GetKey(key, key_length, callback, user);
}

int Kvdb_DeleteKey(const char* key, uint16_t key_length) {
  Daemon& daemon = Running();
  const int result = ResultOf(daemon.device().store.Delete(Bytes(key, key_length), daemon.now()));
  return result == 0 ? 1 : result;
}

// What it keeps no program reads.
int Kvdb_KeepUnreadable(const char*, uint16_t, const char*, uint32_t) { return 1; }

int Kvdb_BackupDatabase() { return ResultOf(Running().device().store.Backup(Daemon::Current()->now())); }
int Kvdb_RestoreDatabase() { return ResultOf(Running().device().store.Restore(Daemon::Current()->now())); }

// ---- logging, watchdog, shell ----

int InitLxLogging(int, char**) { return 1; }
void ExitLxLogging() {}

namespace lxlogging {

bool IsShown(int level) { return level >= kError; }

CLxLogStream::CLxLogStream(int level, const char* source_file, int source_line, int)
    : shown_(IsShown(level)), level_(level), source_file_(source_file), source_line_(source_line) {}

CLxLogStream::~CLxLogStream() {
  if (shown_ && Daemon::Current() != nullptr) Daemon::Current()->device().Logged(text_);
}

}  // namespace lxlogging

uint32_t RegisterWatchDogKey(const char*, int, int) {
  Running();
  return 1;
}

void FeedDog(uint32_t) {
  Daemon& daemon = Running();
  daemon.fed_at = daemon.now();
}

void ReportProgress() { Daemon::Current()->fed_at = Daemon::Current()->now(); }

int RunShellCommand(const char* command_line) {
  Daemon& daemon = Running();
  daemon.device().RanInShell(command_line);
  return 0;
}

void SleepMicroseconds(unsigned microseconds) { Running().Sleep(microseconds); }
