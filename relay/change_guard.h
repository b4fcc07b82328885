// Changes that are tried from afar: set now, kept when whoever asked still reaches the device, and set back by the
// device itself when not. Decides only: its owner sends the requests, keeps the text and answers.
//
//   try_change   {"id", "seconds", "changes": [{"type": "set_...", "body"}, ...]}
//   keep_change  {"id"}     undo_change  {"id"}     get_change
//
// What is to be set back stands in a text that its owner stores before anything is set, so that it outlives a restart.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "relay/outputs.h"
#include "relay/site_counts.h"

namespace relay {

inline constexpr char kTryChange[] = "try_change";
inline constexpr char kKeepChange[] = "keep_change";
inline constexpr char kUndoChange[] = "undo_change";
inline constexpr char kGetChange[] = "get_change";
inline constexpr char kGetRelayCfg[] = "get_relay_cfg";
inline constexpr char kSetRelayCfg[] = "set_relay_cfg";
inline constexpr int kLeftAsTried = 500;  // the state of a reply: something of what was tried could not be set back

// Where what is to be set back stands in the device's store: of a change that came from the site, guarded by the relay,
// and of one that was made on the device itself, guarded there.
inline constexpr bs::StoredDocument kSiteChange = bs::Stored("relay_change_value", 18, bs::kNoDefault);
inline constexpr bs::StoredDocument kDeviceChange = bs::Stored("config_change_value", 19, bs::kNoDefault);

// One line, as short as it gets.
std::string CompactText(const Json::Value& document);

// A reply in the device's form; body is left out where it is null.
std::string ReplyText(std::string_view type, int state, const std::string& error_msg, const Json::Value& body);

// The command that reads what this one stores, empty for one that cannot be set back.
std::string_view ReadingCommand(std::string_view storing_command);

class ChangeGuard {
 public:
  static constexpr size_t kMostChanges = 32;

  // ---- what it wants, in order ----
  struct Ask {  // of the device; answered by Answered. One at a time
    std::string type;
    std::string text;
  };
  struct Answer {
    uint64_t token;  // the request's
    std::string text;
  };
  struct Store {  // in place of what is stored, empty for nothing; answered by Stored
    std::string text;
  };
  struct Look {  // at what is stored; each answered by Looked, in their order
    const bs::StoredDocument* document;
  };
  struct Say {
    int level;
    std::string text;
  };
  using Wish = std::variant<Ask, Answer, Store, Look, Say>;
  std::vector<Wish> Take() { return std::exchange(wishes_, {}); }
  Milliseconds NextTurn() const;

  // boot tells one run of the machine from another: the clock starts anew with it; empty: nobody knows. other is where
  // the device's other guard keeps its change: one of the two waits at a time.
  ChangeGuard(std::string boot, const bs::StoredDocument& other) : boot_(std::move(boot)), other_(other) {}

  static bool Takes(std::string_view type);

  // ---- what happens ----
  // The stored text at the start of the program.
  void Restore(std::string_view text, Milliseconds now);
  // A request that it takes, with a token of the owner's choice other than 0.
  void Request(uint64_t token, const Json::Value& request, Milliseconds now);
  void Answered(std::string_view reply, Milliseconds now);
  void Stored(bool done, Milliseconds now);
  void Looked(Found found, std::string_view text, Milliseconds now);
  void Turn(Milliseconds now);

  bool IsIdle() const { return phase_ == Phase::kIdle; }
  // Between the first thing that is set and the answer: what was set should not take effect on the way of the answer.
  bool IsAtWork() const { return phase_ != Phase::kIdle && phase_ != Phase::kWaiting; }

 private:
  enum class Phase {
    kIdle,
    kReading,
    kSaving,
    kYielding,
    kSetting,
    kChecking,
    kMarking,
    kWaiting,
    kRestoring,
    kErasing
  };

  struct Change {
    std::string type;
    Json::Value wanted;
    Json::Value before;
    Json::Value stored;
  };
  struct Outcome {
    int state = 200;
    std::string error_msg = "All done";
  };

  void Try(uint64_t token, const Json::Value& body, Milliseconds now);
  std::optional<std::string> ReadChanges(const Json::Value& list, std::vector<Change>* changes) const;
  void Extend(uint64_t token, int seconds, Milliseconds now);
  void Keep(uint64_t token, Milliseconds now);
  void Begin(Phase phase, Milliseconds now);
  void Next(Milliseconds now);  // asks for what comes next, or ends the phase
  void Save(bool complete);
  void GoBack(Milliseconds now);
  void LookAt(const bs::StoredDocument& document, uint64_t token);
  void TellOther(uint64_t token, Found found, std::string_view text, Milliseconds now);
  void Yield(Found found, std::string_view text, Milliseconds now);
  const bs::StoredDocument* DocumentRead() const;
  void Taken(const Outcome& outcome, const Json::Value& body, Milliseconds now);
  void TakenBack(const Outcome& outcome, const Json::Value& body, Milliseconds now);
  void End();
  void Reply(uint64_t token, const char* type, const Outcome& outcome, const Json::Value& body = Json::Value());
  Json::Value Summary() const;

  const std::string boot_;
  const bs::StoredDocument& other_;
  std::vector<Wish> wishes_;
  struct Glance {
    const bs::StoredDocument* document;
    uint64_t token;  // of the request that it is for; 0: of the change under way
  };
  std::deque<Glance> glances_;  // at what is stored, in the order in which they are answered
  Phase phase_ = Phase::kIdle;
  std::string id_;
  int seconds_ = 0;
  std::vector<Change> changes_;
  size_t at_ = 0;   // the change under way; while it goes back, one beyond it
  size_t set_ = 0;  // changes that may have been set
  bool asked_ = false;
  std::optional<Json::Value> read_;  // by the device, and not yet compared with the store
  int refusals_ = 0;
  std::string refusal_;    // of the latest setting back
  bool compares_ = false;  // whether anything is left to set back
  bool said_ = false;
  bool keeps_ = false;                                            // the text is erased because the change is kept
  std::optional<std::pair<int, Milliseconds>> before_extension_;  // seconds and deadline
  Outcome outcome_;                                               // of the try
  Outcome left_;                    // of setting back: what stays as it was tried, if anything
  Milliseconds deadline_ = kNever;  // when it goes back
  Milliseconds patience_ = kNever;  // of the question under way, or of the pause before the next
  uint64_t try_token_ = 0;
  uint64_t end_token_ = 0;  // of the request that ended it
  const char* end_type_ = kUndoChange;
};

}  // namespace relay
