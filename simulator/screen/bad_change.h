// A change that would need somebody to climb up: the line at a speed that no display reads, the lamp dark. It is made
// as people make one, by parkctl with --confirm, so that the device comes back by itself.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>

#include "desk/desk.h"

namespace desk {

class BadChange {
 public:
  BadChange(Desk& desk, std::string parkctl);

  void Make();
  void Look();  // what has become of it; to be called again and again

  // For the screen: what is tried and how long still, then for a while what came of it; empty: nothing.
  const std::string& words() const { return words_; }
  bool is_waiting() const { return is_waiting_; }

 private:
  std::optional<Json::Value> Stored(const char* document);
  bool IsAsItWas();

  Desk& desk_;
  const std::string parkctl_;
  Process tool_, guard_;
  Json::Value tried_;  // the documents that wait, each with what it was before
  std::string words_;
  bool is_waiting_ = false;
  Loop::Clock::time_point look_at_{}, forget_at_{};
};

}  // namespace desk
