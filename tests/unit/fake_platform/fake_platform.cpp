#include "fake_platform/fake_platform.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <stdexcept>

#include "assertion.h"
#include "base64.h"
#include "evt_timer.h"
#include "kvdb.h"
#include "lx_logging.h"
#include "shell.h"
#include "watchdog.h"

namespace {

FakePlatform the_fake;

[[maybe_unused]] const bool asserting = businessserver::assertions_end_the_process = true;

}  // namespace

namespace lxconn {

class EVT_LOOP {};

struct FakeTimer : FakePlatform::Arming {
  EVT_CALLBACK callback = nullptr;
  const void* user = nullptr;
};
struct EVT_TIMER::Impl : FakeTimer {};

// In the order in which they were made: of two that fall due together, the older fires first.
static std::vector<FakeTimer*>& AllTimers() {
  static std::vector<FakeTimer*> all;
  return all;
}

EVT_TIMER::EVT_TIMER() : impl_(new Impl()) { AllTimers().push_back(impl_.get()); }
EVT_TIMER::~EVT_TIMER() { AllTimers().erase(std::find(AllTimers().begin(), AllTimers().end(), impl_.get())); }

int EVT_TIMER::Init(EVT_LOOP* loop, EVT_CALLBACK callback, const void* user) {
  if (loop == nullptr || callback == nullptr) return -1;
  impl_->callback = callback;
  impl_->user = user;
  return 0;
}

int EVT_TIMER::Start(unsigned first_delay_ms, unsigned period_ms) {
  if (impl_->callback == nullptr) return -1;
  impl_->due = the_fake.now_ms + first_delay_ms;
  impl_->period = period_ms;
  impl_->armed = true;
  return 0;
}

// Fires the earliest timer due at or before `until`; false when there is none.
static bool FireNext(uint64_t until, unsigned shortest_period) {
  FakeTimer* next = nullptr;
  for (FakeTimer* timer : AllTimers()) {
    if (timer->period != 0 && timer->period < shortest_period) timer->due = until + timer->period;
    if (timer->armed && timer->due <= until && (next == nullptr || timer->due < next->due)) next = timer;
  }
  if (next == nullptr) return false;
  the_fake.now_ms = std::max(the_fake.now_ms, next->due);
  next->armed = next->period != 0;
  next->due += next->period;
  next->callback(-1, 1, next->user);
  return true;
}

}  // namespace lxconn

void FakePlatform::Advance(uint64_t milliseconds, unsigned shortest_period) {
  const uint64_t until = now_ms + milliseconds;
  while (lxconn::FireNext(until, shortest_period)) {
  }
  now_ms = until;
}

void FakePlatform::Deliver(const std::string& type, const std::string& data, uint32_t id) {
  std::vector<uint64_t> block((sizeof(_TagDpMsg) + data.size() + 8) / 8);
  auto* msg = reinterpret_cast<_TagDpMsg*>(block.data());
  msg->type_name_len = static_cast<uint8_t>(type.size());
  memcpy(msg->type_name, type.data(), std::min(type.size(), sizeof msg->type_name));
  msg->message_id = id;
  msg->data_size = static_cast<uint32_t>(data.size());
  memcpy(msg + 1, data.data(), data.size());
  on_message(nullptr, msg, user);
}

std::vector<FakePlatform::Arming> FakePlatform::Armings() {
  const auto& timers = lxconn::AllTimers();
  std::vector<Arming> armings;
  std::transform(timers.begin(), timers.end(), std::back_inserter(armings), [](const auto* timer) { return *timer; });
  return armings;
}

void FakePlatform::Rearm(const std::vector<Arming>& armings) {
  const auto& timers = lxconn::AllTimers();
  for (size_t i = 0; i < timers.size(); ++i) static_cast<Arming&>(*timers[i]) = armings.at(i);
}

bool FakePlatform::Logged(int level, const std::string& text) const {
  return std::any_of(log.begin(), log.end(),
                     [&](const LogRecord& record) { return record.level == level && record.text == text; });
}

const FakePlatform::BusMessage* FakePlatform::LastSent(const std::string& type) const {
  const auto found = std::find_if(sent.rbegin(), sent.rend(), [&](const BusMessage& m) { return m.type == type; });
  return found == sent.rend() ? nullptr : &*found;
}

FakePlatform& Fake() { return the_fake; }
void ResetFake() { the_fake = FakePlatform(); }

// ---- bus ----

int DpClient_Init(const char* host, uint16_t port) {
  the_fake.calls.push_back("DpClient_Init(" + std::string(host) + "," + std::to_string(port) + ")");
  return 1;
}
int DpClient_Start(int mode) {
  the_fake.calls.push_back("DpClient_Start(" + std::to_string(mode) + ")");
  return 1;
}
int DpClient_Stop() {
  the_fake.calls.push_back("DpClient_Stop");
  return 1;
}
DpPollHandle* DpClient_CreatePollHandle(DpMsgCallback on_message, void* user, DpStatusCallback on_status, int, int) {
  the_fake.calls.push_back("DpClient_CreatePollHandle");
  the_fake.on_message = on_message;
  the_fake.on_status = on_status;
  the_fake.user = user;
  return nullptr;
}
int DpClient_HdlAddListenMessage(DpPollHandle*, const char* const* type_names, int count) {
  the_fake.calls.push_back("DpClient_HdlAddListenMessage");
  the_fake.subscriptions.emplace_back(type_names, type_names + count);
  return 1;
}
int DpClient_HdlReConnect(DpPollHandle*) {
  ++the_fake.reconnects;
  return the_fake.reconnect_result;
}
lxconn::EVT_LOOP* DpClient_GetEvtLoopFromPoll(DpPollHandle*) {
  static lxconn::EVT_LOOP loop;
  return &loop;
}
int DpClient_PollDpMessage(DpPollHandle*, int) {
  if (!the_fake.on_poll) throw std::runtime_error("polled without a script");
  the_fake.on_poll();
  return 1;
}
int DpClient_SendDpMessage(const char* type_name, int, const void* data, uint32_t size) {
  the_fake.sent.push_back({type_name, 0, std::string(static_cast<const char*>(data), size)});
  return 1;
}
int DpClient_SendDpReply(const char* type_name, int, uint32_t message_id, const void* data, uint32_t size) {
  the_fake.replies.push_back({type_name, message_id, std::string(static_cast<const char*>(data), size)});
  return 1;
}

// ---- store ----

int Kvdb_Start(const char* host, uint16_t port) {
  the_fake.calls.push_back("Kvdb_Start(" + std::string(host) + "," + std::to_string(port) + ")");
  return the_fake.store_down ? -1 : 1;
}
int Kvdb_Stop() {
  the_fake.calls.push_back("Kvdb_Stop");
  return 1;
}
static bool StoreRefuses() {
  if (the_fake.store_down || the_fake.store_refusals == 0) return the_fake.store_down;
  --the_fake.store_refusals;
  return true;
}
int Kvdb_SetKey(const char* key, uint16_t key_length, const char* value, uint32_t value_length) {
  ++the_fake.store_writes;
  if (StoreRefuses()) return -1;
  the_fake.store[std::string(key, key_length)] = std::string(value, value_length);
  return 1;
}
int Kvdb_GetKey(const char* key, uint16_t key_length, KvdbGetCallback callback, void* user) {
  const std::string name(key, key_length);
  if (the_fake.keeps_trace) the_fake.store_reads.push_back(name);
  if (StoreRefuses()) return -1;
  const auto found = the_fake.store.find(name);
  if (found == the_fake.store.end()) return 0;
  callback(key, key_length, found->second.data(), static_cast<int>(found->second.size()), user);
  return 1;
}
int Kvdb_GetKeyAbsolutely(const char* key, uint16_t key_length, KvdbGetCallback callback, void* user) {
  return Kvdb_GetKey(key, key_length, callback, user);
}
int Kvdb_DeleteKey(const char* key, uint16_t key_length) {
  the_fake.store.erase(std::string(key, key_length));
  return the_fake.store_down ? -1 : 1;
}
int Kvdb_KeepUnreadable(const char* key, uint16_t key_length, const char* text, uint32_t length) {
  the_fake.unreadable[std::string(key, key_length)] = std::string(text, length);
  return StoreRefuses() ? -1 : 1;
}
int Kvdb_BackupDatabase() {
  the_fake.calls.push_back("Kvdb_BackupDatabase");
  return the_fake.store_down ? -1 : 1;
}
int Kvdb_RestoreDatabase() {
  the_fake.calls.push_back("Kvdb_RestoreDatabase");
  return the_fake.store_down ? -1 : 1;
}

// ---- logging, watchdog, base64, shell ----

int InitLxLogging(int, char**) { return 1; }
void ExitLxLogging() {}

namespace lxlogging {
bool IsShown(int level) { return level >= the_fake.least_level; }
CLxLogStream::CLxLogStream(int level, const char* source_file, int source_line, int)
    : shown_(IsShown(level)), level_(level), source_file_(source_file), source_line_(source_line) {}
CLxLogStream::~CLxLogStream() {
  if (shown_) the_fake.log.push_back({level_, source_file_, text_});
}
}  // namespace lxlogging

uint32_t RegisterWatchDogKey(const char* name, int first, int second) {
  the_fake.calls.push_back("RegisterWatchDogKey(" + std::string(name) + "," + std::to_string(first) + "," +
                           std::to_string(second) + ")");
  return the_fake.watchdog_key;
}
void FeedDog(uint32_t key) { the_fake.feedings += key == the_fake.watchdog_key ? 1 : 0; }
void ReportProgress() { ++the_fake.progress_reports; }

int RunShellCommand(const char* command_line) {
  the_fake.shell.emplace_back(command_line);
  return 0;
}
void SleepMicroseconds(unsigned microseconds) {
  if (the_fake.keeps_trace) the_fake.shell.push_back("sleep " + std::to_string(microseconds));
  the_fake.now_ms += microseconds / 1000;
  if (the_fake.on_sleep) the_fake.on_sleep(microseconds);
}

namespace lxbase {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

static std::array<int, 256> DigitValues() {
  std::array<int, 256> values;
  values.fill(-1);
  for (int i = 0; i < 64; ++i) values[static_cast<uint8_t>(kAlphabet[i])] = i;
  return values;
}

std::string Base64::EncodeFromArray(const void* data, size_t size) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  std::string text;
  text.reserve((size + 2) / 3 * 4);
  for (size_t i = 0; i < size; i += 3) {
    uint32_t group = 0;
    for (size_t k = 0; k < 3; ++k) group = group << 8 | (i + k < size ? bytes[i + k] : 0);
    for (size_t k = 0; k < 4; ++k) text += i + k > size ? '=' : kAlphabet[group >> (18 - 6 * k) & 63];
  }
  return text;
}

std::string Base64::DecodeFromArray(const char* text, size_t size, int, int* decoded_size) {
  static const std::array<int, 256> values = DigitValues();
  std::string data;
  uint32_t group = 0;
  int bits = 0;
  bool malformed = size % 4 != 0;
  for (size_t i = 0; i < size && text[i] != '='; ++i) {
    const int digit = values[static_cast<uint8_t>(text[i])];
    malformed |= digit < 0;
    group = group << 6 | static_cast<uint32_t>(digit & 63);
    bits += 6;
    if (bits >= 8) data += static_cast<char>(group >> (bits -= 8) & 255);
  }
  if (malformed) data.clear();
  if (decoded_size != nullptr) *decoded_size = malformed ? -1 : static_cast<int>(data.size());
  return data;
}

}  // namespace lxbase
