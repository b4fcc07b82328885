#include "kvdblog/kvdb_log.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "kvdb.h"
#include "log.h"
#include "protocol/json_text.h"
#include "protocol/names.h"

namespace businessserver {

namespace {

constexpr char kLogSource[] = "lib/businessserver/kvdblog/kvdb_log";

constexpr Json::ArrayIndex kMaxRecords = 8;

constexpr std::string_view kDefaultText = "\t{\t\t\"log_index\" : 0\t}";
static_assert(kDefaultText.size() == 21, "the device's own text");

bool HasUsableForm(const Json::Value& document) {
  if (!document.isObject()) return false;
  const Json::Value& logs = document[kLogs];
  return logs.isNull() || logs.isArray();
}

bool IsRecordIndex(const Json::Value& index) {
  return index.isNull() || (index.isInt() && index.asInt() >= 0 && index.asInt() < static_cast<int>(kMaxRecords));
}

// Puts index and number of records right in a document of usable form; true when something had to be changed.
bool Repair(Json::Value& document) {
  bool repaired = false;
  Json::Value& logs = document[kLogs];
  if (logs.size() > kMaxRecords) {
    logs.resize(kMaxRecords);
    repaired = true;
  }
  if (document.isMember(kLogIndex) && !IsRecordIndex(document[kLogIndex])) {
    document[kLogIndex] = static_cast<int>(logs.size() % kMaxRecords);
    repaired = true;
  }
  if (logs.isNull()) document.removeMember(kLogs);
  return repaired;
}

// An address, a message, a time: longer texts are nobody's, and would be written again with each of the next records.
Json::Value Bounded(Json::Value record) {
  if (!record.isObject()) return record;
  for (Json::Value& member : record) {
    if (!member.isString()) continue;
    const std::string text = member.asString();
    if (text.size() <= KvdbLog::kMaxTextSize) continue;
    size_t end = KvdbLog::kMaxTextSize;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;  // not within a character
    member = text.substr(0, end);
  }
  return record;
}

}  // namespace

KvdbLog::~KvdbLog() { BS_LOG(kLifecycle) << "~KvdbLog"; }

void KvdbLog::Start(const std::string& key) {
  key_ = key;
  GetLogFromKvdb();
}

void KvdbLog::GetLogFromKvdb() {
  if (unsaved_ && loaded_) Save();
  Load();
}

bool KvdbLog::Load() {
  const Json::Value made_meanwhile = loaded_ ? Json::Value() : document_;
  const int found = Kvdb_GetKeyAbsolutely(key_.data(), static_cast<uint16_t>(key_.size()), GetKeyCallBack, this);
  if (found < 0) {
    if (document_.isNull()) TakeDefault();  // in memory only: a store that is late must not lose its log
    return false;
  }
  loaded_ = true;
  if (found == 0) {
    TakeDefault();
    Write(std::string(kDefaultText));
  }
  // The records that were made while the store was away follow those that it held.
  if (!made_meanwhile.isObject()) return true;
  const Json::Value& records = made_meanwhile[kLogs];
  const Json::ArrayIndex oldest = records.size() < kMaxRecords ? 0 : made_meanwhile[kLogIndex].asUInt();
  for (Json::ArrayIndex i = 0; i < records.size(); ++i) Append(records[(oldest + i) % records.size()]);
  return true;
}

void KvdbLog::GetKeyCallBack(const char*, int, const char* value, int value_length, void* self) {
  if (value == nullptr || value_length < 0 || self == nullptr) return;
  static_cast<KvdbLog*>(self)->TakeStored(value, value_length);
}

void KvdbLog::TakeStored(const char* value, int value_length) {
  const std::string_view text(value, static_cast<size_t>(value_length));
  std::string problem = "no list of events";
  if (!ParseJson(text, document_, &problem) || !HasUsableForm(document_)) {
    BS_LOG(kError) << key_
                   << " is unusable, an empty log takes its place, its old text is kept as unreadable: " << problem;
    Kvdb_KeepUnreadable(key_.data(), static_cast<uint16_t>(key_.size()), value, static_cast<uint32_t>(value_length));
    TakeDefault();
    Write(std::string(kDefaultText));
  } else if (Repair(document_)) {
    BS_LOG(kError) << key_ << " had a wrong index or too many records, put right";
    Write(StyledText(document_));
  }
}

void KvdbLog::TakeDefault() { ParseJson(kDefaultText, document_); }

void KvdbLog::Append(const Json::Value& record) {
  const int index = document_[kLogIndex].asInt();
  Json::Value& logs = document_[kLogs];
  if (logs.size() >= kMaxRecords) {
    logs[index] = record;
  } else {
    logs.append(record);
  }
  document_[kLogIndex] = index == static_cast<int>(kMaxRecords) - 1 ? 0 : index + 1;
}

int KvdbLog::AddKvdbLog(const Json::Value& record) {
  Append(Bounded(record));
  unsaved_ = true;
  if (writes_left_ == 0) return 1;
  --writes_left_;
  return Save();
}

void KvdbLog::Flush() {
  if (unsaved_) {
    Save();
  } else {
    writes_left_ = std::min(writes_left_ + 1, kMaxWrites);
  }
}

Json::Value& KvdbLog::QuaryKvdbLog() {
  if (!loaded_ && !key_.empty()) Load();
  return document_;
}

int KvdbLog::Save() {
  if (!loaded_ && !Load()) return 1;
  unsaved_ = false;
  // Kept: a failed write (-1) counts as written; callers only tell 0 from the rest.
  return Write(StyledText(document_)) != 0 ? 1 : 0;
}

int KvdbLog::Write(const std::string& text) const {
  return Kvdb_SetKey(key_.data(), static_cast<uint16_t>(key_.size()), text.data(), static_cast<uint32_t>(text.size()));
}

}  // namespace businessserver
