#include "relay/change_guard.h"

#include <json/writer.h>

#include <algorithm>
#include <tuple>

#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "relay/documents.h"

namespace relay {

namespace {

constexpr int kMostSeconds = 3600;
constexpr Milliseconds kPatience = 5000;  // for an answer of the device, and before the next attempt
constexpr int kMostRefusals = 12;         // of a setting back

constexpr int kNoStore = 503;
constexpr int kNoAnswer = 504;

constexpr char kAnother[] = "another change waits";
constexpr char kMadeOnTheDevice[] = "another change waits, made on the device itself";
constexpr char kFromTheSite[] = "another change waits, from the site";

bool IsId(const Json::Value& id) { return id.isString() && bs::IsSiteName(id.asString()); }

std::string RequestText(std::string_view type, const Json::Value& body) {
  Json::Value request;
  request[bs::kType] = std::string(type);
  if (!body.isNull()) request[bs::kBody] = body;
  return CompactText(request);
}

// Nothing is wrong with what was asked: it is asked again until it is answered.
bool IsAway(int state) { return state == kNoStore || state == kNoAnswer; }

Json::UInt SecondsLeft(Milliseconds deadline, Milliseconds now) {
  return static_cast<Json::UInt>(deadline > now ? (deadline - now + 999) / 1000 : 0);
}

// A member of what may be no object.
Json::Value Member(const Json::Value& document, const char* name) {
  return document.isObject() ? document.get(name, Json::Value()) : Json::Value();
}

// The beacon's identity is set as a text: one that is none, or is not shown whole, cannot be set back.
bool CanBeSetBack(std::string_view type, const Json::Value& before) {
  if (type != bs::kSetBt) return true;
  const Json::Value uuid = Member(before, bs::kUuid);
  return uuid.isString() && !uuid.asString().empty() && uuid.asString().find("\xEF\xBF\xBD") == std::string::npos;
}

// A command may name a part of the identity only; everything else is stored as it is sent.
bool Holds(std::string_view type, const Json::Value& stored, const Json::Value& wanted) {
  if (type != bs::kSetBt || !stored.isObject() || !wanted.isObject()) return stored == wanted;
  const std::vector<std::string> names = wanted.getMemberNames();
  return std::all_of(names.begin(), names.end(), [&](const std::string& name) { return stored[name] == wanted[name]; });
}

}  // namespace

std::string CompactText(const Json::Value& document) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, document);
}

std::string ReplyText(std::string_view type, int state, const std::string& error_msg, const Json::Value& body) {
  Json::Value reply;
  reply[bs::kType] = std::string(type);
  reply[bs::kState] = state;
  reply[bs::kErrorMsg] = error_msg;
  if (!body.isNull()) reply[bs::kBody] = body;
  return CompactText(reply);
}

std::string_view ReadingCommand(std::string_view storing_command) {
  if (storing_command == kSetRelayCfg) return kGetRelayCfg;
  if (storing_command == bs::kSetBt) return bs::kGetBt;  // asks the module, which the stored document only echoes
  const bs::Command* const storing = bs::FindCommand(bs::kBusRequestMessage, storing_command);
  if (storing == nullptr || storing->effect != bs::CommandEffect::kStores) return {};
  for (const bs::Command& command : bs::kCommands) {
    if (command.effect == bs::CommandEffect::kReads && command.document == storing->document) return command.name;
  }
  return {};
}

bool ChangeGuard::Takes(std::string_view type) {
  return type == kTryChange || type == kKeepChange || type == kUndoChange || type == kGetChange;
}

Milliseconds ChangeGuard::NextTurn() const {
  return std::min(patience_, phase_ == Phase::kWaiting ? deadline_ : kNever);
}

void ChangeGuard::Request(uint64_t token, const Json::Value& request, Milliseconds now) {
  const std::string type = request[bs::kType].asString();
  const Json::Value body = Member(request, bs::kBody);
  if (type == kTryChange) {
    Try(token, body, now);
    return;
  }
  if (type == kGetChange) {
    if (IsIdle()) {
      LookAt(other_, token);
      return;
    }
    Json::Value waiting;
    waiting["id"] = id_;
    waiting["seconds_left"] = SecondsLeft(phase_ == Phase::kWaiting ? deadline_ : 0, now);
    Reply(token, kGetChange, {}, waiting);
    return;
  }
  const char* const known_type = type == kKeepChange ? kKeepChange : kUndoChange;
  if (IsIdle() || Member(body, "id") != Json::Value(id_)) {
    Reply(token, known_type, {404, "no such change waits"});
  } else if (phase_ != Phase::kWaiting) {
    const bool goes_back = phase_ == Phase::kRestoring || phase_ == Phase::kErasing;
    Reply(token, known_type, {409, goes_back ? "the change is being set back" : "the change is still being made"});
  } else {
    end_token_ = token;
    end_type_ = known_type;
    if (type == kKeepChange) {
      keeps_ = true;
      Begin(Phase::kErasing, now);
    } else {
      GoBack(now);
    }
  }
}

void ChangeGuard::Try(uint64_t token, const Json::Value& body, Milliseconds now) {
  const Json::Value id = Member(body, "id");
  const Json::Value seconds = Member(body, "seconds");
  const Json::Value list = Member(body, "changes");
  std::vector<Change> changes;
  std::optional<std::string> problem;
  if (!IsId(id)) {
    problem = "\"id\" is no name of 1 to 32 of A-Z a-z 0-9 _ -";
  } else if (!seconds.isInt() || seconds.asInt() < 1 || seconds.asInt() > kMostSeconds) {
    problem = "\"seconds\" is no whole number from 1 to 3600";
  } else if (IsIdle() || !list.isNull()) {
    problem = ReadChanges(list, &changes);
  }
  if (problem) {
    Reply(token, kTryChange, {400, *problem});
    return;
  }
  if (!IsIdle()) {
    const bool same =
        std::equal(changes.begin(), changes.end(), changes_.begin(), changes_.end(),
                   [](const Change& a, const Change& b) { return a.type == b.type && a.wanted == b.wanted; });
    if (phase_ == Phase::kWaiting && id.asString() == id_ && (list.isNull() || same)) {
      Extend(token, seconds.asInt(), now);
    } else {
      Reply(token, kTryChange, {409, kAnother});
    }
    return;
  }
  id_ = id.asString();
  seconds_ = seconds.asInt();
  changes_ = std::move(changes);
  try_token_ = token;
  end_token_ = 0;
  outcome_ = left_ = {};
  keeps_ = false;
  set_ = 0;
  Begin(Phase::kReading, now);
}

// Returns what is wrong.
std::optional<std::string> ChangeGuard::ReadChanges(const Json::Value& list, std::vector<Change>* changes) const {
  if (!list.isArray() || list.empty() || list.size() > kMostChanges)
    return "\"changes\" is no list of 1 to 32 requests";
  for (const Json::Value& entry : list) {
    const Json::Value type = Member(entry, bs::kType);
    if (!type.isString() || ReadingCommand(type.asString()).empty()) {
      return (type.isString() ? "\"" + type.asString() + "\"" : std::string("what is no request")) +
             " cannot be set back and so not be tried";
    }
    if (!Member(entry, bs::kBody).isObject()) return "\"" + type.asString() + "\" has no body";
    const auto is_same = [&](const Change& change) { return change.type == type.asString(); };
    if (std::any_of(changes->begin(), changes->end(), is_same)) return "\"" + type.asString() + "\" stands there twice";
    changes->push_back({type.asString(), Member(entry, bs::kBody), {}, {}});
  }
  return std::nullopt;
}

void ChangeGuard::Extend(uint64_t token, int seconds, Milliseconds now) {
  before_extension_ = {seconds_, deadline_};
  seconds_ = seconds;
  deadline_ = now + static_cast<Milliseconds>(seconds) * 1000;
  try_token_ = token;
  Begin(Phase::kMarking, now);
}

void ChangeGuard::Begin(Phase phase, Milliseconds now) {
  phase_ = phase;
  at_ = phase == Phase::kRestoring ? set_ : 0;
  refusals_ = 0;
  said_ = false;
  compares_ = false;
  asked_ = false;
  Next(now);
}

void ChangeGuard::Next(Milliseconds now) {
  patience_ = now + kPatience;
  read_.reset();
  switch (phase_) {
    case Phase::kReading:
    case Phase::kChecking:
      if (at_ == changes_.size()) {
        if (phase_ == Phase::kChecking) deadline_ = now + static_cast<Milliseconds>(seconds_) * 1000;
        Begin(phase_ == Phase::kReading ? Phase::kSaving : Phase::kMarking, now);
        return;
      }
      asked_ = true;
      wishes_.push_back(Ask{std::string(ReadingCommand(changes_[at_].type)),
                            RequestText(ReadingCommand(changes_[at_].type), Json::Value())});
      return;
    case Phase::kSaving:
      Save(false);
      return;
    case Phase::kYielding:
      LookAt(other_, 0);
      return;
    case Phase::kMarking:
      Save(true);
      return;
    case Phase::kSetting:
      if (at_ == changes_.size()) {
        Begin(Phase::kChecking, now);
        return;
      }
      set_ = at_ + 1;  // also when no answer comes
      asked_ = true;
      wishes_.push_back(Ask{changes_[at_].type, RequestText(changes_[at_].type, changes_[at_].wanted)});
      return;
    case Phase::kRestoring:
      if (at_ == 0) {
        Begin(Phase::kErasing, now);
        return;
      }
      asked_ = true;
      if (compares_) {
        const std::string_view reading = ReadingCommand(changes_[at_ - 1].type);
        wishes_.push_back(Ask{std::string(reading), RequestText(reading, Json::Value())});
      } else {
        wishes_.push_back(Ask{changes_[at_ - 1].type, RequestText(changes_[at_ - 1].type, changes_[at_ - 1].before)});
      }
      return;
    case Phase::kErasing:
      wishes_.push_back(Store{""});
      return;
    case Phase::kIdle:
    case Phase::kWaiting:
      patience_ = kNever;
      return;
  }
}

void ChangeGuard::Save(bool complete) {
  if (!complete) deadline_ = 0;  // after a restart on the way it goes back at once
  Json::Value text;
  text["id"] = id_;
  text["seconds"] = seconds_;
  text["boot"] = boot_;
  text["deadline"] = static_cast<Json::UInt64>(deadline_);
  for (const Change& change : changes_) {
    Json::Value entry;
    entry["type"] = change.type;
    entry["wanted"] = change.wanted;
    entry["before"] = change.before;
    text["changes"].append(std::move(entry));
  }
  wishes_.push_back(Store{CompactText(text)});
}

void ChangeGuard::Restore(std::string_view stored, Milliseconds now) {
  Json::Value text;
  stored = stored.substr(0, stored.find('\0'));
  if (stored.empty() || !IsIdle()) return;
  std::vector<Change> changes;
  const bool readable = ParseObject(stored, &text) && IsId(text["id"]) && text["seconds"].isInt() &&
                        text["boot"].isString() && text["deadline"].isUInt64() && text["changes"].isArray();
  for (const Json::Value& entry : readable ? text["changes"] : Json::Value()) {
    const Json::Value type = Member(entry, "type");
    if (!type.isString() || ReadingCommand(type.asString()).empty()) continue;
    changes.push_back({type.asString(), Member(entry, "wanted"), Member(entry, "before"), Member(entry, "wanted")});
  }
  if (changes.empty()) {
    wishes_.push_back(Say{kError, "a change that was being tried cannot be read and stays as it is"});
    Begin(Phase::kErasing, now);
    return;
  }
  id_ = text["id"].asString();
  seconds_ = text["seconds"].asInt();
  changes_ = std::move(changes);
  set_ = changes_.size();
  const bool same_clock = !boot_.empty() && text["boot"].asString() == boot_;
  deadline_ = same_clock ? text["deadline"].asUInt64() : 0;
  try_token_ = end_token_ = 0;
  if (deadline_ <= now) {
    GoBack(now);
  } else {
    phase_ = Phase::kWaiting;
  }
}

void ChangeGuard::GoBack(Milliseconds now) {
  wishes_.push_back(Say{kInfo, "the change " + id_ + " is set back"});
  Begin(Phase::kRestoring, now);
}

void ChangeGuard::Answered(std::string_view reply, Milliseconds now) {
  if (!asked_) return;
  asked_ = false;
  Json::Value document;
  Outcome outcome = {502, "the device's answer cannot be read"};
  if (bs::ParseJson(reply, document) && document.isObject() && document[bs::kState].isInt()) {
    outcome.state = document[bs::kState].asInt();
    outcome.error_msg = document[bs::kErrorMsg].isString() ? document[bs::kErrorMsg].asString() : "";
  }
  const bs::StoredDocument* const stored = DocumentRead();
  if (stored == nullptr || outcome.state != bs::kAllDone.state) {
    Taken(outcome, Member(document, bs::kBody), now);
    return;
  }
  read_ = Member(document, bs::kBody);
  LookAt(*stored, 0);
}

void ChangeGuard::LookAt(const bs::StoredDocument& document, uint64_t token) {
  glances_.push_back({&document, token});
  wishes_.emplace_back(std::in_place_type<Look>, Look{&document});
}

// Its own change is stored by now: of two guards that begin at once at least one sees the other's, and nothing is set.
void ChangeGuard::Yield(Found found, std::string_view text, Milliseconds now) {
  if (found == Found::kNo || (found == Found::kYes && text.empty())) {
    Begin(Phase::kSetting, now);
    return;
  }
  outcome_ = {kNoStore, "the store does not answer, nothing was changed"};
  if (found == Found::kYes) outcome_ = {409, &other_ == &kDeviceChange ? kMadeOnTheDevice : kFromTheSite};
  Begin(Phase::kErasing, now);
}

// Nothing waits here; what waits at the other guard is told as the other's.
void ChangeGuard::TellOther(uint64_t token, Found found, std::string_view text, Milliseconds now) {
  if (found == Found::kUnreachable) {
    Reply(token, kGetChange, {kNoStore, "the store does not answer"});
    return;
  }
  Json::Value body(Json::objectValue), stored;
  if (found == Found::kYes && ParseObject(text.substr(0, text.find('\0')), &stored) && IsId(stored["id"])) {
    const bool same_clock = !boot_.empty() && stored["boot"] == Json::Value(boot_) && stored["deadline"].isUInt64();
    body["other"]["id"] = stored["id"];
    body["other"]["seconds_left"] = SecondsLeft(same_clock ? stored["deadline"].asUInt64() : 0, now);
  }
  Reply(token, kGetChange, {}, body);
}

// What the question under way reads, null for what is set and for what the relay reads itself.
const bs::StoredDocument* ChangeGuard::DocumentRead() const {
  if (phase_ == Phase::kSetting || (phase_ == Phase::kRestoring && !compares_)) return nullptr;
  const Change& change = changes_[phase_ == Phase::kRestoring ? at_ - 1 : at_];
  if (change.type == bs::kSetBt) return nullptr;
  const bs::Command* const command = bs::FindCommand(bs::kBusRequestMessage, change.type);
  return command != nullptr ? command->document : nullptr;
}

// A device that its store does not answer goes by its defaults, and says so with "All done". Taken for what was stored,
// a default would be set over its owner's document, or would pass for what was set back.
void ChangeGuard::Looked(Found found, std::string_view text, Milliseconds now) {
  if (glances_.empty()) return;
  const Glance glance = glances_.front();
  glances_.pop_front();
  if (glance.token != 0) {
    TellOther(glance.token, found, text, now);
    return;
  }
  if (glance.document == &other_) {
    if (phase_ == Phase::kYielding) Yield(found, text, now);
    return;
  }
  if (!read_ || glance.document != DocumentRead()) return;
  const Json::Value body = *std::exchange(read_, std::nullopt);
  Json::Value stored;
  if (found == Found::kUnreachable) {
    Taken({kNoStore, "the store does not answer"}, Json::Value(), now);
  } else if (found == Found::kYes && !(bs::ParseJson(text, stored) && stored == body)) {
    Taken({kNoStore, "the device does not say what is stored"}, Json::Value(), now);
  } else {
    Taken({}, body, now);
  }
}

// What the device made of the question under way.
void ChangeGuard::Taken(const Outcome& outcome, const Json::Value& body, Milliseconds now) {
  const bool done = outcome.state == bs::kAllDone.state;
  if (phase_ == Phase::kRestoring) {
    TakenBack(outcome, body, now);
    return;
  }
  Outcome failure = outcome;
  if (done && phase_ == Phase::kReading) {
    changes_[at_].before = body;
    if (!CanBeSetBack(changes_[at_].type, body)) failure = {409, "what the beacon module goes by cannot be set back"};
  }
  if (done && phase_ == Phase::kChecking) {
    changes_[at_].stored = body;
    if (!Holds(changes_[at_].type, body, changes_[at_].wanted))
      failure = {409, "the device did not store " + changes_[at_].type + " as it was sent"};
  }
  if (failure.state == bs::kAllDone.state) {
    ++at_;
    Next(now);
    return;
  }
  outcome_ = {failure.state, changes_[at_].type + ": " + failure.error_msg};
  if (phase_ == Phase::kReading) {
    End();  // nothing was changed
  } else {
    GoBack(now);
  }
}

// The device refuses what it refused before, too: then what is stored tells whether anything is left to set back.
void ChangeGuard::TakenBack(const Outcome& outcome, const Json::Value& body, Milliseconds now) {
  const Change& change = changes_[at_ - 1];
  bool done = outcome.state == bs::kAllDone.state;
  if (compares_) {
    done = done && body == change.before;
  } else if (!done && !IsAway(outcome.state)) {
    compares_ = true;
    refusal_ = outcome.error_msg;
    Next(now);
    return;
  }
  compares_ = false;
  if (!done) {
    const std::string reason = IsAway(outcome.state) ? outcome.error_msg : refusal_;
    if (!said_) wishes_.push_back(Say{kError, change.type + " cannot be set back yet: " + reason});
    said_ = true;
    if (IsAway(outcome.state) || ++refusals_ < kMostRefusals) return;  // again, when patience is over
    wishes_.push_back(Say{kError, change.type + " is not set back: " + reason});
    outcome_ = left_ = {kLeftAsTried, change.type + " is not set back: " + reason};
  }
  --at_;
  refusals_ = 0;
  said_ = false;
  Next(now);
}

void ChangeGuard::Stored(bool done, Milliseconds now) {
  switch (phase_) {
    case Phase::kSaving:
      if (done) {
        Begin(Phase::kYielding, now);
      } else {
        Reply(std::exchange(try_token_, 0), kTryChange, {503, "the store does not answer, nothing was changed"});
        Begin(Phase::kErasing, now);  // the text may have arrived all the same
      }
      return;
    case Phase::kMarking:
      if (!done && !before_extension_) {
        outcome_ = {kNoStore, "the store does not answer"};
        GoBack(now);
        return;
      }
      phase_ = Phase::kWaiting;
      patience_ = kNever;
      if (!done) {
        std::tie(seconds_, deadline_) = *before_extension_;
        before_extension_.reset();
        Reply(std::exchange(try_token_, 0), kTryChange, {kNoStore, "the store does not answer"});
        return;
      }
      before_extension_.reset();
      Reply(std::exchange(try_token_, 0), kTryChange, {}, Summary());
      wishes_.push_back(Say{kInfo, "the change " + id_ + " is tried for " + std::to_string(seconds_) + " s"});
      return;
    case Phase::kErasing:
      if (done) {
        End();
      } else if (keeps_) {
        keeps_ = false;
        phase_ = Phase::kWaiting;
        patience_ = kNever;
        Reply(std::exchange(end_token_, 0), kKeepChange, {503, "the store does not answer"});
      }
      return;  // else again, when patience is over
    default:
      return;
  }
}

void ChangeGuard::End() {
  phase_ = Phase::kIdle;
  patience_ = deadline_ = kNever;
  if (keeps_) wishes_.push_back(Say{kInfo, "the change " + id_ + " is kept"});
  Json::Value body;
  body["id"] = id_;
  if (try_token_ != 0) Reply(std::exchange(try_token_, 0), kTryChange, outcome_, body);
  if (end_token_ != 0) Reply(std::exchange(end_token_, 0), end_type_, left_, body);
  left_ = {};
  changes_.clear();
}

void ChangeGuard::Turn(Milliseconds now) {
  if (phase_ == Phase::kWaiting && now >= deadline_) {
    GoBack(now);
  } else if (now >= patience_) {
    if (asked_) {
      asked_ = false;
      patience_ = now + kPatience;
      Taken({kNoAnswer, "the device does not answer"}, Json::Value(), now);
    } else {
      Next(now);
    }
  }
}

void ChangeGuard::Reply(uint64_t token, const char* type, const Outcome& outcome, const Json::Value& body) {
  if (token != 0) wishes_.push_back(Answer{token, ReplyText(type, outcome.state, outcome.error_msg, body)});
}

Json::Value ChangeGuard::Summary() const {
  Json::Value body;
  body["id"] = id_;
  body["seconds"] = seconds_;
  body["stored"] = Json::Value(Json::arrayValue);
  for (const Change& change : changes_) {
    Json::Value entry;
    entry["type"] = change.type;
    entry["body"] = change.stored;
    body["stored"].append(std::move(entry));
  }
  return body;
}

}  // namespace relay
