// A device's store in memory: answers at once, unless it is away or has just come back and still reads its file. What
// was stored is kept. After a refusal it is left alone for a second, as the platform does.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "years/schedule.h"

namespace years {

class Store {
 public:
  enum class Answer { kDone, kMissing, kFailed };

  // Called before a value is replaced or a new one is made.
  std::function<void(const std::string& key, const std::string* before, const std::string& after)> on_write;

  Answer Get(const std::string& key, std::string* value, Micros now);
  Answer Set(const std::string& key, const std::string& value, Micros now);
  Answer Delete(const std::string& key, Micros now);
  Answer Backup(Micros now);
  Answer Restore(Micros now);

  // For another process than the daemon, whose waiting after a failure is its own.
  Answer Peek(const std::string& key, std::string* value, Micros now) const;

  void GoAway(Micros until) { away_until_ = until; }
  // The connection is lost at the n-th call from now on: the call may have been carried out or not.
  void LoseAtCall(unsigned calls, bool carried_out) {
    calls_left_ = calls;
    carried_out_ = carried_out;
  }

  std::map<std::string, std::string> values;

 private:
  enum class Fate { kAnswered, kLost, kLostButDone };
  Fate Ask(Micros now);

  std::map<std::string, std::string> backup_;
  bool has_backup_ = false;
  Micros away_until_ = 0;
  Micros retry_at_ = 0;
  unsigned calls_left_ = 0;
  bool carried_out_ = false;
};

}  // namespace years
