#include "dkvdb/dkvdbclient.h"

#include <cstring>
#include <string_view>

#include "kvdb.h"
#include "log.h"

namespace dkvdb {

namespace {

constexpr char kLogSource[] = "lib/businessserver/dkvdb/dkvdbclient";
constexpr int kFailed = -1;

uint16_t KeyLength(const std::string& key) { return static_cast<uint16_t>(key.size()); }

}  // namespace

KvdbClient::~KvdbClient() { BS_LOG(lxlogging::kLifecycle) << "~KvdbClient"; }

bool KvdbClient::InitKvdbClient(const char* host, uint16_t port) { return Kvdb_Start(host, port) != kFailed; }

int KvdbClient::UinitKvdbClient() { return Kvdb_Stop(); }

bool KvdbClient::SetKey(const char* key, uint16_t key_length, const char* value, uint32_t value_length) {
  return Kvdb_SetKey(key, key_length, value, value_length) != kFailed;
}

bool KvdbClient::SetKey(const std::string& key, const char* value, uint32_t value_length) {
  return SetKey(key.data(), KeyLength(key), value, value_length);
}

bool KvdbClient::GetKey(const char* key, uint16_t key_length, std::string* value, bool absolutely) {
  const auto lookup = absolutely ? Kvdb_GetKeyAbsolutely : Kvdb_GetKey;
  return lookup(key, key_length, GetKeyCallBack, value) > 0;
}

bool KvdbClient::GetKey(const std::string& key, std::string* value, bool absolutely) {
  return GetKey(key.data(), KeyLength(key), value, absolutely);
}

Lookup KvdbClient::Find(const char* key, uint16_t key_length, std::string* value) {
  const int found = Kvdb_GetKeyAbsolutely(key, key_length, GetKeyCallBack, value);
  return found > 0 ? Lookup::kFound : found == 0 ? Lookup::kMissing : Lookup::kUnanswered;
}

bool KvdbClient::KeepUnreadable(const char* key, uint16_t key_length, const std::string& text) {
  return Kvdb_KeepUnreadable(key, key_length, text.data(), static_cast<uint32_t>(text.size())) != kFailed;
}

bool KvdbClient::DeleteKey(const char* key, uint16_t key_length) { return Kvdb_DeleteKey(key, key_length) != kFailed; }

bool KvdbClient::BackupDatabase() { return Kvdb_BackupDatabase() != kFailed; }

bool KvdbClient::RestoreDatabase() { return Kvdb_RestoreDatabase() != kFailed; }

void KvdbClient::GetKeyCallBack(const char*, int, const char* value, int value_length, void* user) {
  if (value == nullptr || value_length < 0 || user == nullptr) return;
  const auto length = static_cast<size_t>(value_length);
  // As text: stored texts often count their terminating NUL, which the log must not show.
  BS_LOG(lxlogging::kInfo) << "GetKeyCallBack : " << std::string_view(value, strnlen(value, length));
  static_cast<std::string*>(user)->append(value, length);
}

}  // namespace dkvdb
