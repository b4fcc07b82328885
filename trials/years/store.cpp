#include "years/store.h"

namespace years {

Store::Fate Store::Ask(Micros now) {
  if (now < retry_at_) return Fate::kLost;
  const bool lost = calls_left_ > 0 && --calls_left_ == 0;
  if (!lost && now >= away_until_) return Fate::kAnswered;
  retry_at_ = now + kSecond;
  return lost && carried_out_ && now >= away_until_ ? Fate::kLostButDone : Fate::kLost;
}

Store::Answer Store::Get(const std::string& key, std::string* value, Micros now) {
  if (Ask(now) != Fate::kAnswered) return Answer::kFailed;
  const auto found = values.find(key);
  if (found == values.end()) return Answer::kMissing;
  *value = found->second;
  return Answer::kDone;
}

Store::Answer Store::Peek(const std::string& key, std::string* value, Micros now) const {
  if (now < away_until_) return Answer::kFailed;
  const auto found = values.find(key);
  if (found == values.end()) return Answer::kMissing;
  *value = found->second;
  return Answer::kDone;
}

Store::Answer Store::Set(const std::string& key, const std::string& value, Micros now) {
  const Fate fate = Ask(now);
  if (fate == Fate::kLost) return Answer::kFailed;
  const auto found = values.find(key);
  if (on_write) on_write(key, found == values.end() ? nullptr : &found->second, value);
  values[key] = value;
  return fate == Fate::kAnswered ? Answer::kDone : Answer::kFailed;
}

Store::Answer Store::Delete(const std::string& key, Micros now) {
  const Fate fate = Ask(now);
  if (fate == Fate::kLost) return Answer::kFailed;
  values.erase(key);
  return fate == Fate::kAnswered ? Answer::kDone : Answer::kFailed;
}

Store::Answer Store::Backup(Micros now) {
  const Fate fate = Ask(now);
  if (fate == Fate::kLost) return Answer::kFailed;
  backup_ = values;
  has_backup_ = true;
  return fate == Fate::kAnswered ? Answer::kDone : Answer::kFailed;
}

Store::Answer Store::Restore(Micros now) {
  const Fate fate = Ask(now);
  if (fate == Fate::kLost || !has_backup_) return Answer::kFailed;
  values = backup_;
  return fate == Fate::kAnswered ? Answer::kDone : Answer::kFailed;
}

}  // namespace years
