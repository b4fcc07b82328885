// The store as the server sees it: results as booleans, a read value collected in a string. Keys and values are
// counted bytes; nothing is added or stripped. Failures are reported by the results alone, nothing is logged.
#pragma once

#include <boost/enable_shared_from_this.hpp>
#include <cstdint>
#include <string>

namespace dkvdb {

// What became of a look-up. Only one that the store has answered says anything about what it holds.
enum class Lookup { kFound, kMissing, kUnanswered };

class KvdbClient : public boost::enable_shared_from_this<KvdbClient> {
 public:
  virtual ~KvdbClient();

  bool InitKvdbClient(const char* host, uint16_t port);
  int UinitKvdbClient();  // the library's result

  // Lengths in bytes. The string forms cut a key's length to its low 16 bits.
  bool SetKey(const char* key, uint16_t key_length, const char* value, uint32_t value_length);
  bool SetKey(const std::string& key, const char* value, uint32_t value_length);

  // Appends the found value to *value (pass an empty string for the value alone) and returns true; leaves it alone and
  // returns false when there is no such key or the store fails. `absolutely` selects Kvdb_GetKeyAbsolutely.
  bool GetKey(const char* key, uint16_t key_length, std::string* value, bool absolutely);
  bool GetKey(const std::string& key, std::string* value, bool absolutely);

  // As GetKey with `absolutely`, and tells a key that is not there from a store that did not say.
  Lookup Find(const char* key, uint16_t key_length, std::string* value);

  // Before something else is stored under the key of a document that cannot be read: its text, beside the store.
  bool KeepUnreadable(const char* key, uint16_t key_length, const std::string& text);

  bool DeleteKey(const char* key, uint16_t key_length);
  bool BackupDatabase();
  bool RestoreDatabase();

  // The library's callback; user is the std::string to append to.
  static void GetKeyCallBack(const char* key, int key_length, const char* value, int value_length, void* user);
};

}  // namespace dkvdb
