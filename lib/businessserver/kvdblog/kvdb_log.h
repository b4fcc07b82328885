// The last eight external-control events, kept as one JSON document in the store so that they survive a restart:
// {"log_index": 0..7, "logs": [record, ...]}, log_index being the record that the next event replaces once there are
// eight.
#pragma once

#include <json/value.h>

#include <boost/enable_shared_from_this.hpp>
#include <string>

namespace businessserver {

class KvdbLog : public boost::enable_shared_from_this<KvdbLog> {
 public:
  ~KvdbLog();

  // Remembers the key (stored without a terminating NUL) and loads the document. A missing or unusable document
  // becomes the default, in memory and in the store; one with a wrong index or too many records is put right in both.
  // When the store cannot be read the document in memory stays as it is (at first the default), nothing is written.
  void Start(const std::string& key);
  void GetLogFromKvdb();  // loads it again, in the same way

  // Adds a record, replacing the oldest of eight, and writes the document, at once or, where records come faster than
  // a medium should be written, at the next Flush. Texts of a record are cut to kMaxTextSize bytes. Returns 1, or 0
  // when the write returned 0; the record stays in memory either way.
  int AddKvdbLog(const Json::Value& record);
  static constexpr size_t kMaxTextSize = 255;

  // Writes what was put off, if there is anything. For the owner's tick, every few seconds, and its end: between two
  // calls a few records are written at once, after a silence up to kMaxWrites of them.
  void Flush();
  static constexpr int kMaxWrites = 32;

  // Where the store had not answered yet, it is asked again first.
  Json::Value& QuaryKvdbLog();

  // The library's callback; self is the KvdbLog that reads.
  static void GetKeyCallBack(const char* key, int key_length, const char* value, int value_length, void* self);

 private:
  void TakeStored(const char* value, int value_length);
  void TakeDefault();
  bool Load();
  void Append(const Json::Value& record);
  int Save();
  int Write(const std::string& text) const;  // the store's result

  Json::Value document_;
  std::string key_;
  bool loaded_ =
      false;  // the store has answered once; until then nothing is written, and a write or a query asks it again
  bool unsaved_ = false;
  int writes_left_ = kMaxWrites;
};

}  // namespace businessserver
