// The store is a redis server; all of it is one hash, so that a backup is one command.
#include "kvdb_whole.h"

#include <fcntl.h>
#include <hiredis/hiredis.h>
#include <sched.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "lx_logging.h"
#include "peer_owner.h"
#include "shell.h"
#include "signals.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kLogSource[] = "platform/linux/store";
constexpr std::string_view kStore = "kvdb";
constexpr size_t kMaxWords = 4;  // of a command
constexpr std::string_view kBackup = "kvdb:backup";
constexpr std::string_view kUnreadable = "kvdb:unreadable";
constexpr std::string_view kImport = "kvdb:import";  // being brought in
constexpr uint32_t kLongestUnreadable = 16 * 1024;
constexpr timeval kConnectLimit = {0, 200 * 1000};
constexpr timeval kAnswerLimit = {0, 500 * 1000};
// No document of the device comes near this. What is longer is not taken into memory, and counts as missing.
constexpr size_t kMaxValue = 1024 * 1024;
constexpr auto kLinger = std::chrono::microseconds(150);
// The loop thread waits on the store: after a failure it does not wait again for this long.
constexpr auto kFailFast = std::chrono::seconds(1);
// What is not read at the start is not read again: a store that is started at the same time gets this long to listen.
constexpr auto kStartLimit = std::chrono::seconds(1);
constexpr unsigned kStartPauseMicroseconds = 20000;

struct ReplyDeleter {
  void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using Reply = std::unique_ptr<redisReply, ReplyDeleter>;

struct ContextDeleter {
  void operator()(redisContext* context) const { redisFree(context); }
};

class Store {
 public:
  Store(const char* host, uint16_t port)
      : host_(host), port_(port), owner_(platform::AccountId(platform::kStoreAccount)) {}

  // Null when the store is out of reach or refuses the command, or its answer was too long.
  template <size_t N>
  Reply Run(const std::string_view (&command)[N]) {
    static_assert(N <= kMaxWords, "there is no room for so many words");
    return Run(command, N);
  }
  bool WasTooLong() const { return too_long_; }

  // Whether it answers, before the limit is over.
  bool Await(Clock::duration limit);

 private:
  Reply Run(const std::string_view* command, size_t size);
  bool Connect();
  bool IsConnected() const;
  bool IsStrangers();
  Reply Exchange(int count, const char** words, const size_t* lengths);
  void LingerForAnswer() const;
  Reply ReadReply();
  bool AnswersTooLong() const;
  void Fail(const char* what);
  void Fail(const char* what, std::string_view why);
  void NoteAnswer(std::string_view command, const redisReply& reply);

  const std::string host_;
  const uint16_t port_;
  std::unique_ptr<redisContext, ContextDeleter> context_;
  Clock::time_point retry_at_;
  const std::optional<uid_t> owner_;  // of the store; without the package anybody
  bool too_long_ = false;             // the last answer, which was not read
  bool failing_ = false;
  std::string refused_command_;  // empty while all is well
};

std::unique_ptr<Store> store;

// A server that was restarted since the last call has closed the connection: noticed here, the call can still
// succeed. Bytes that nobody asked for would be taken for the next answer.
bool Store::IsConnected() const {
  char byte;
  return context_ && recv(context_->fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
}

bool Store::Connect() {
  if (IsConnected()) return true;
  context_.reset();
  if (Clock::now() < retry_at_) return false;
  context_.reset(redisConnectWithTimeout(host_.c_str(), port_, kConnectLimit));
  if (!context_ || context_->err != 0 || redisSetTimeout(context_.get(), kAnswerLimit) != REDIS_OK) {
    Fail("cannot be reached");
    return false;
  }
  fcntl(context_->fd, F_SETFD, FD_CLOEXEC);
  return !IsStrangers();
}

// What a stranger says is no configuration, and is told none.
bool Store::IsStrangers() {
  if (!owner_) return false;
  const platform::Peer peer = platform::AwaitPeer(context_->fd, *owner_, kConnectLimit.tv_usec / 1000);
  if (peer == platform::Peer::kTrusted) return false;
  if (peer == platform::Peer::kUnknownYet) {
    Fail("does not take connections");
  } else {
    Fail("is not the device's", platform::StrangerText(context_->fd));
  }
  return true;
}

bool Store::Await(Clock::duration limit) {
  const auto end = Clock::now() + limit;
  while (!Run({"PING"})) {
    if (Clock::now() >= end) return false;
    retry_at_ = {};
    SleepMicroseconds(kStartPauseMicroseconds);
  }
  return true;
}

void Store::Fail(const char* what) {
  Fail(what, !context_ ? "no memory" : context_->err != 0 ? context_->errstr : "not in time");
}

// Frees the connection too: a late answer would be taken for that of the next command.
void Store::Fail(const char* what, std::string_view why) {
  if (!failing_) {
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0) << "the store " << what << ": " << why;
  }
  failing_ = true;
  context_.reset();
  retry_at_ = Clock::now() + kFailFast;
}

// The store is on this machine and answers a reading sooner than a processor falls asleep and wakes again. For that
// long the processor is offered to others instead: on a board with only one, the store is among them.
void Store::LingerForAnswer() const {
  const auto end = Clock::now() + kLinger;
  char byte;
  while (recv(context_->fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN && Clock::now() < end) {
    sched_yield();
  }
}

Reply Store::Exchange(int count, const char** words, const size_t* lengths) {
  if (redisAppendCommandArgv(context_.get(), count, words, lengths) != REDIS_OK) return nullptr;
  int written = 0;
  while (written == 0) {
    if (redisBufferWrite(context_.get(), &written) != REDIS_OK) return nullptr;
  }
  LingerForAnswer();
  return ReadReply();
}

// As the library does it, but for at most so long and so much.
Reply Store::ReadReply() {
  const auto end = Clock::now() + std::chrono::microseconds(kAnswerLimit.tv_usec);
  for (;;) {
    void* reply = nullptr;
    if (redisGetReplyFromReader(context_.get(), &reply) != REDIS_OK) return nullptr;
    if (reply != nullptr) return Reply(static_cast<redisReply*>(reply));
    too_long_ = AnswersTooLong();
    if (too_long_ || Clock::now() >= end || redisBufferRead(context_.get()) != REDIS_OK) return nullptr;
  }
}

// What the library is reading; it keeps that in another form since its version 1.
#if HIREDIS_MAJOR >= 1
const redisReadTask& FirstTask(const redisReader& reader) { return *reader.task[0]; }
#else
const redisReadTask& FirstTask(const redisReader& reader) { return reader.rstack[0]; }
#endif

// Of a text "$<length>\r\n<bytes>\r\n" the reader has taken the "$", and the rest only when it is all there. Nothing
// else that the store says in answer to these commands is long.
bool Store::AnswersTooLong() const {
  const redisReader& reader = *context_->reader;
  const std::string_view answer(reader.buf + reader.pos, reader.len - reader.pos);
  if (answer.size() > kMaxValue + 32) return true;
  if (reader.ridx != 0 || FirstTask(reader).type != REDIS_REPLY_STRING) return false;
  size_t length = 0;
  std::from_chars(answer.data(), answer.data() + answer.size(), length);
  return length > kMaxValue;
}

Reply Store::Run(const std::string_view* command, size_t size) {
  const char* words[kMaxWords];
  size_t lengths[kMaxWords];
  for (size_t i = 0; i < size; ++i) {
    words[i] = command[i].data();
    lengths[i] = command[i].size();
  }
  too_long_ = false;
  if (!Connect()) return nullptr;
  Reply reply = Exchange(static_cast<int>(size), words, lengths);
  if (too_long_) {
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0)
        << "the store holds a value that is longer than " << kMaxValue << " bytes: " << words[size - 1];
    context_.reset();  // with what it still has to say
    return nullptr;
  }
  if (!reply) {
    Fail("does not answer");
    return nullptr;
  }
  // While it reads its file it refuses everything.
  if (reply->type == REDIS_REPLY_ERROR && std::string_view(reply->str, reply->len).substr(0, 7) == "LOADING") {
    Fail("is not ready yet");
    return nullptr;
  }
  NoteAnswer(command[0], *reply);
  return reply->type == REDIS_REPLY_ERROR ? nullptr : std::move(reply);
}

void Store::NoteAnswer(std::string_view command, const redisReply& reply) {
  if (failing_) {
    failing_ = false;
    lxlogging::CLxLogStream(lxlogging::kLifecycle, kLogSource, __LINE__, 0) << "the store answers again";
  }
  if (reply.type == REDIS_REPLY_ERROR) {
    if (refused_command_ == command) return;
    refused_command_ = command;
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0)
        << "the store refuses " << command << ": " << std::string_view(reply.str, reply.len);
  } else if (refused_command_ == command) {
    refused_command_.clear();
    lxlogging::CLxLogStream(lxlogging::kLifecycle, kLogSource, __LINE__, 0)
        << "the store accepts " << command << " again";
  }
}

template <size_t N>
Reply Run(const std::string_view (&command)[N]) {
  return store ? store->Run(command) : nullptr;
}

// Redis answers 1 when it copied, 0 when there is nothing to copy; -1 on failure.
int Copy(std::string_view from, std::string_view to) {
  const Reply reply = Run({"COPY", from, to, "REPLACE"});
  return reply && reply->type == REDIS_REPLY_INTEGER ? static_cast<int>(reply->integer) : -1;
}

}  // namespace

int Kvdb_Start(const char* host, uint16_t port) {
  if (host == nullptr) return -1;
  platform::IgnoreBrokenPipes();
  store = std::make_unique<Store>(host, port);
  return store->Await(kStartLimit) ? 1 : -1;
}

int Kvdb_Stop() {
  store.reset();
  return 1;
}

int Kvdb_SetKey(const char* key, uint16_t key_length, const char* value, uint32_t value_length) {
  return Run({"HSET", kStore, {key, key_length}, {value, value_length}}) ? 1 : -1;
}

int Kvdb_GetKey(const char* key, uint16_t key_length, KvdbGetCallback callback, void* user) {
  const Reply reply = Run({"HGET", kStore, {key, key_length}});
  if (!reply) return store && store->WasTooLong() ? 0 : -1;
  if (reply->type == REDIS_REPLY_NIL) return 0;
  if (reply->type != REDIS_REPLY_STRING) return -1;
  callback(key, key_length, reply->str, static_cast<int>(reply->len), user);
  return 1;
}

int Kvdb_GetKeyAbsolutely(const char* key, uint16_t key_length, KvdbGetCallback callback, void* user) {
  return Kvdb_GetKey(key, key_length, callback, user);
}

int Kvdb_DeleteKey(const char* key, uint16_t key_length) { return Run({"HDEL", kStore, {key, key_length}}) ? 1 : -1; }

int Kvdb_KeepUnreadable(const char* key, uint16_t key_length, const char* text, uint32_t length) {
  return Run({"HSET", kUnreadable, {key, key_length}, {text, std::min(length, kLongestUnreadable)}}) ? 1 : -1;
}

int Kvdb_BackupDatabase() {
  const int copied = Copy(kStore, kBackup);
  // An older backup must not pass for that of an empty store.
  if (copied == 0) return Run({"DEL", kBackup}) ? 1 : -1;
  return copied;
}

int Kvdb_RestoreDatabase() { return Copy(kBackup, kStore) == 1 ? 1 : -1; }

int Kvdb_ReadAll(KvdbPart part, KvdbDocuments* documents) {
  const std::string_view hash = part == KvdbPart::kStore ? kStore : kUnreadable;
  const Reply keys = Run({"HKEYS", hash});
  if (!keys || keys->type != REDIS_REPLY_ARRAY) return -1;
  for (size_t i = 0; i < keys->elements; ++i) {
    const std::string_view key(keys->element[i]->str, keys->element[i]->len);
    const Reply value = Run({"HGET", hash, key});
    if (!value || (value->type != REDIS_REPLY_STRING && value->type != REDIS_REPLY_NIL)) return -1;
    if (value->type == REDIS_REPLY_STRING) documents->emplace_back(key, std::string(value->str, value->len));
  }
  std::sort(documents->begin(), documents->end());
  return 1;
}

// Made beside the store, and put into its place by one command.
int Kvdb_ReplaceAll(const KvdbDocuments& documents) {
  bool made = !documents.empty() && Run({"DEL", kImport});
  for (const auto& [key, value] : documents) made = made && Run({"HSET", kImport, key, value});
  const bool replaced = made && Copy(kImport, kStore) == 1;
  Run({"DEL", kImport});
  return replaced ? 1 : -1;
}
