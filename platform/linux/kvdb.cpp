// The store is a redis server; all of it is one hash, so that a backup is one command.
#include "kvdb.h"

#include <fcntl.h>
#include <hiredis/hiredis.h>
#include <sched.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

#include "lx_logging.h"
#include "shell.h"
#include "signals.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kLogSource[] = "platform/linux/store";
constexpr std::string_view kStore = "kvdb";
constexpr std::string_view kBackup = "kvdb:backup";
constexpr timeval kConnectLimit = {0, 200 * 1000};
constexpr timeval kAnswerLimit = {0, 500 * 1000};
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
  Store(const char* host, uint16_t port) : host_(host), port_(port) {}

  // Null when the store is out of reach or refuses the command.
  Reply Run(std::initializer_list<std::string_view> command);

  // Whether it answers, before the limit is over.
  bool Await(Clock::duration limit);

 private:
  bool Connect();
  bool IsConnected() const;
  Reply Exchange(int count, const char** words, const size_t* lengths);
  void LingerForAnswer() const;
  void Fail(const char* what);
  void NoteAnswer(std::string_view command, const redisReply& reply);

  const std::string host_;
  const uint16_t port_;
  std::unique_ptr<redisContext, ContextDeleter> context_;
  Clock::time_point retry_at_;
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

// Frees the connection too: a late answer would be taken for that of the next command.
void Store::Fail(const char* what) {
  if (!failing_) {
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0)
        << "the store " << what << ": " << (context_ ? context_->errstr : "no memory");
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
  void* reply = nullptr;
  return redisGetReply(context_.get(), &reply) == REDIS_OK ? Reply(static_cast<redisReply*>(reply)) : nullptr;
}

Reply Store::Run(std::initializer_list<std::string_view> command) {
  constexpr size_t kMaxWords = 4;
  const char* words[kMaxWords];
  size_t lengths[kMaxWords];
  int count = 0;
  for (const std::string_view word : command) {
    words[count] = word.data();
    lengths[count++] = word.size();
  }
  if (!Connect()) return nullptr;
  Reply reply = Exchange(count, words, lengths);
  if (!reply) {
    Fail("does not answer");
    return nullptr;
  }
  // While it reads its file it refuses everything. A default must not be written over a document that could not be
  // read: the pause keeps the next write away too.
  if (reply->type == REDIS_REPLY_ERROR && std::string_view(reply->str, reply->len).substr(0, 7) == "LOADING") {
    Fail("is not ready yet");
    return nullptr;
  }
  NoteAnswer(*command.begin(), *reply);
  return reply->type == REDIS_REPLY_ERROR ? nullptr : std::move(reply);
}

void Store::NoteAnswer(std::string_view command, const redisReply& reply) {
  if (failing_) {
    failing_ = false;
    lxlogging::CLxLogStream(lxlogging::kInfo, kLogSource, __LINE__, 0) << "the store answers again";
  }
  if (reply.type == REDIS_REPLY_ERROR) {
    if (refused_command_ == command) return;
    refused_command_ = command;
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0)
        << "the store refuses " << command << ": " << std::string_view(reply.str, reply.len);
  } else if (refused_command_ == command) {
    refused_command_.clear();
    lxlogging::CLxLogStream(lxlogging::kInfo, kLogSource, __LINE__, 0) << "the store accepts " << command << " again";
  }
}

Reply Run(std::initializer_list<std::string_view> command) { return store ? store->Run(command) : nullptr; }

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
  if (!reply) return -1;
  if (reply->type != REDIS_REPLY_STRING) return 0;
  callback(key, key_length, reply->str, static_cast<int>(reply->len), user);
  return 1;
}

int Kvdb_GetKeyAbsolutely(const char* key, uint16_t key_length, KvdbGetCallback callback, void* user) {
  return Kvdb_GetKey(key, key_length, callback, user);
}

int Kvdb_DeleteKey(const char* key, uint16_t key_length) { return Run({"HDEL", kStore, {key, key_length}}) ? 1 : -1; }

int Kvdb_BackupDatabase() {
  const int copied = Copy(kStore, kBackup);
  // An older backup must not pass for that of an empty store.
  if (copied == 0) return Run({"DEL", kBackup}) ? 1 : -1;
  return copied;
}

int Kvdb_RestoreDatabase() { return Copy(kBackup, kStore) == 1 ? 1 : -1; }
