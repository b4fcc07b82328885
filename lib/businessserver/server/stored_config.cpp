// Stored documents with their defaults.
#include <string>
#include <string_view>

#include "kvdb.h"
#include "protocol/json_text.h"
#include "server/business_server.h"

namespace businessserver {

int BusinessServer::GetKeyValueAndReplyBuf(const char* key, int key_length, Json::Value& document, int default_index) {
  const auto stored_length = static_cast<uint16_t>(key_length);
  const std::string_view name(key, strnlen(key, stored_length));
  std::string text, problem;
  const dkvdb::Lookup lookup = kvdb_client_->Find(key, stored_length, &text);
  store_answered_ = lookup != dkvdb::Lookup::kUnanswered;
  if (lookup == dkvdb::Lookup::kFound && ParseJson(text, document, &problem)) {
    BS_LOG(kInfo) << "Read key form kvdb " << name;
    return 1;
  }
  BS_LOG(kInfo) << "switch";
  if (lookup == dkvdb::Lookup::kFound) BS_LOG(kError) << name << " cannot be read: " << problem;
  const std::string_view default_text = DefaultDocument(default_index);
  if (default_text.empty()) return 0;
  if (!ParseJson(default_text, document)) {
    BS_LOG(kError) << "Default Cfg is Error Json : " << name;
    return 0;
  }
  BS_LOG(kInfo) << "GetKvdb End";
  if (lookup == dkvdb::Lookup::kFound) KeepUnreadable(key, stored_length, text);
  return StoreDefault(key, stored_length, default_text) ? 1 : 0;
}

// What its owner stored is not to be lost for a comma too many.
void BusinessServer::KeepUnreadable(const char* key, uint16_t key_length, const std::string& text) {
  const bool kept = kvdb_client_->KeepUnreadable(key, key_length, text);
  BS_LOG(kError) << std::string_view(key, strnlen(key, key_length)) << " gets its default, its old text is "
                 << (kept ? "kept as unreadable" : "lost");
}

std::string_view BusinessServer::ReplaceUnusable(const StoredDocument& stored, const Json::Value& document,
                                                 const char* problem) {
  const std::string_view default_text = DefaultDocument(stored.default_index);
  if (!store_answered_) return default_text;
  BS_LOG(kError) << stored.key << " cannot be used: " << problem;
  KeepUnreadable(stored.key, stored.key_length, StyledText(document));
  StoreDefault(stored.key, stored.key_length, default_text);
  return default_text;
}

// Every default is written here, after the document was asked for. A store that did not answer then may well hold it,
// and may be back by now.
// Kept: defaults are stored with their NUL counted, as the other processes of the device store theirs.
bool BusinessServer::StoreDefault(const char* key, uint16_t key_length, std::string_view text) {
  if (!store_answered_) return false;
  return kvdb_client_->SetKey(key, key_length, text.data(), static_cast<uint32_t>(text.size() + 1));
}

int BusinessServer::GetKeyValueAndReplyBuf(const StoredDocument& stored, Json::Value& document) {
  return GetKeyValueAndReplyBuf(stored.key, stored.key_length, document, stored.default_index);
}

int BusinessServer::SetKeyValueAndReplyBuf(const char* key, unsigned char key_length, const char* value,
                                           int value_length) {
  return Kvdb_SetKey(key, key_length, value, static_cast<uint32_t>(value_length));
}

int BusinessServer::StoreText(const StoredDocument& stored, const std::string& text) {
  return SetKeyValueAndReplyBuf(stored.key, stored.key_length, text.data(), static_cast<int>(text.size()));
}

}  // namespace businessserver
