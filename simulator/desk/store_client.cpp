#include "desk/store_client.h"

#include <hiredis/hiredis.h>

#include "bringup/device.h"
#include "protocol/stored_documents.h"

namespace desk {
namespace {

constexpr char kHash[] = "kvdb";
constexpr timeval kLimit = {0, 200000};
constexpr Loop::Milliseconds kPause(1000);

std::string KeyBytes(const std::string& document) {
  for (const auto* row : businessserver::kStoredDocuments) {
    if (document == row->key) return std::string(row->key, row->key_length);
  }
  return document;
}

}  // namespace

StoreClient::~StoreClient() {
  if (context_ != nullptr) redisFree(context_);
}

bool StoreClient::Connect() {
  if (context_ != nullptr) return true;
  if (Loop::Clock::now() < not_before_) return false;
  const Network::Inside inside(network_);
  context_ = redisConnectWithTimeout("127.0.0.1", kStorePort, kLimit);
  if (context_ != nullptr && context_->err == 0 && redisSetTimeout(context_, kLimit) == REDIS_OK) return true;
  // A refusal costs nothing and may end any moment; only silence is worth a pause.
  if (context_ != nullptr && context_->err == REDIS_ERR_IO && errno != ECONNREFUSED) {
    not_before_ = Loop::Clock::now() + kPause;
  }
  if (context_ != nullptr) redisFree(context_);
  context_ = nullptr;
  return false;
}

// True for any answer but an error; text, when given, needs an answer that is text.
bool StoreClient::Command(int count, const char** words, const size_t* sizes, std::string* text) {
  if (!Connect()) return false;
  auto* reply = static_cast<redisReply*>(redisCommandArgv(context_, count, words, sizes));
  if (reply == nullptr) {
    redisFree(context_);  // a late answer would be taken for the next one
    context_ = nullptr;
    not_before_ = Loop::Clock::now() + kPause;
    return false;
  }
  bool good = reply->type != REDIS_REPLY_ERROR;
  if (text != nullptr) {
    good = reply->type == REDIS_REPLY_STRING;
    if (good) text->assign(reply->str, static_cast<size_t>(reply->len));
  }
  freeReplyObject(reply);
  return good;
}

bool StoreClient::Get(const std::string& document, std::string& text) {
  const std::string key = KeyBytes(document);
  const char* words[] = {"HGET", kHash, key.data()};
  const size_t sizes[] = {4, sizeof kHash - 1, key.size()};
  return Command(3, words, sizes, &text);
}

bool StoreClient::Set(const std::string& document, const std::string& text) {
  const std::string key = KeyBytes(document);
  const char* words[] = {"HSET", kHash, key.data(), text.data()};
  const size_t sizes[] = {4, sizeof kHash - 1, key.size(), text.size()};
  return Command(4, words, sizes, nullptr);
}

bool StoreClient::Delete(const std::string& document) {
  const std::string key = KeyBytes(document);
  const char* words[] = {"HDEL", kHash, key.data()};
  const size_t sizes[] = {4, sizeof kHash - 1, key.size()};
  return Command(3, words, sizes, nullptr);
}

bool StoreClient::Ping() {
  const char* words[] = {"PING"};
  const size_t sizes[] = {4};
  return Command(1, words, sizes, nullptr);
}

}  // namespace desk
