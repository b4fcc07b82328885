#include "config_commands.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <thread>

#include "change_guard_service.h"
#include "config_state.h"
#include "console.h"
#include "plain_words.h"
#include "protocol/names.h"
#include "relay/change_guard.h"
#include "whole_file.h"

namespace parkctl {

namespace bs = businessserver;

using config::Change;
using config::Configuration;
using config::Difference;

namespace {

constexpr int kAttempts = 5;  // of a set that a device which starts again does not answer
constexpr std::chrono::seconds kAttemptPause{2};

// True for a file that can be used; everything that is wrong with it goes to standard error.
bool ReadSound(const std::string& path, Configuration& configuration) {
  const std::string text = ReadSource(path == "-" ? path : "@" + path);
  const std::vector<std::string> faults = config::ReadFile(text, configuration);
  for (const std::string& fault : faults) std::cerr << words::Printable(fault) << "\n";
  return faults.empty();
}

void Show(const std::vector<Change>& changes) {
  for (const Change& change : changes) {
    std::cout << Painted(Paint::kStrong, change.part->name) << "\n";
    for (const std::string& line : Changes(change.before, change.after)) std::cout << "  " << line << "\n";
  }
}

bool IsForThisDevice(const Configuration& wanted, const Configuration& held, bool any) {
  if (any || wanted.device.empty() || held.device.empty() || wanted.device == held.device) return true;
  Note("the file is of " + words::Printable(wanted.device) + ", this device is " + words::Printable(held.device) +
       ": --other-device takes it all the same");
  return false;
}

// Who a device is, to phones and to its site: two of one identity are a fault that nobody finds soon. A file of another
// device brings its settings along, and this only where somebody says that the other is gone.
constexpr const char* kIdentity[] = {"sys_blue_tooth_value", "ibc_name_value", config::kRelayDocument};

void LeaveIdentityOut(const Configuration& held, Configuration& wanted) {
  if (wanted.device.empty() || wanted.device == held.device) return;
  std::string names;
  const auto is_identity = [&](const config::Document& document) {
    const auto* const name = std::find(std::begin(kIdentity), std::end(kIdentity), document.part->name);
    if (name == std::end(kIdentity)) return false;
    names += (names.empty() ? "" : ", ") + document.part->name;
    return true;
  };
  std::vector<config::Document>& documents = wanted.documents;
  documents.erase(std::remove_if(documents.begin(), documents.end(), is_identity), documents.end());
  if (names.empty()) return;
  Note("left out, for they are who " + words::Printable(wanted.device) + " is: " + names +
       ". --replace sets them too, where this device takes its place");
}

// A beacon module that does not answer leaves an empty identity in the store, which no command sets.
bool HasNoIdentity(const config::Document& document) {
  return document.part->name == kIdentity[0] && document.value.isObject() &&
         document.value[bs::kUuid] == Json::Value("");
}

bool Agrees() {
  if (isatty(STDIN_FILENO) == 0) throw UserError("nobody can be asked here: --yes sets it");
  std::cout << "Set this? [y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

// The name of the change that makes a device like this file: the same file gives the same name.
std::string ChangeId(const Configuration& configuration) {
  uint64_t hash = 0xCBF29CE484222325u;  // FNV-1a
  for (const char c : config::FileText(configuration)) hash = (hash ^ static_cast<uint8_t>(c)) * 0x100000001B3u;
  char id[32];
  snprintf(id, sizeof id, "config-%016" PRIx64, hash);
  return id;
}

Json::Value GuardRequest(const char* type, const std::string& id = "") {
  Json::Value request;
  request[bs::kType] = type;
  if (!id.empty()) request[bs::kBody]["id"] = id;
  return request;
}

struct Waiting {
  std::string id;  // empty: no change waits
  int seconds_left = 0;
  std::string elsewhere;  // where a change waits that can be kept or taken back there only; empty: none does
  int status = kDone;     // kNoAnswer: nobody knows whether one waits; kRefused: nobody may know, problem says why
  std::string problem;
};

// A change waits at the other guard: whatever is set now would be mixed with what that one sets back.
int RefuseForOther(const Waiting& waiting) {
  Note("a change that " + waiting.elsewhere + " waits to be confirmed there: nothing is set");
  return kRefused;
}

Waiting WaitingChange(ConfigDevice& device, const ConfigOptions& options) {
  if (device.ChangeWasLeft()) {
    Note("a change was waiting and the process that guards it was killed: it goes on");
    EnsureChangeGuard(options.device);
  }
  Waiting waiting;
  if (device.SiteTriesChange()) waiting.elsewhere = "came from the site";
  if (!device.remote() && !ChangeGuardRuns()) return waiting;
  const Reply reply = device.AskGuard(GuardRequest(relay::kGetChange));
  if (!reply.Came()) {
    device.Explain(reply);
    waiting.status = kNoAnswer;
  } else if (reply.Away()) {
    waiting.status = device.ExplainAway(reply);
  } else if (const std::string refusal = RelayRefusal(reply.state, reply.error_msg, relay::kGetChange);
             !refusal.empty()) {
    Note(refusal);
    waiting.status = kNoAnswer;
  } else if (!reply.Done()) {
    waiting.status = kRefused;
    waiting.problem = std::to_string(reply.state) + " " + words::Printable(reply.error_msg);
  }
  if (device.remote() && reply.Done() && reply.body.isMember("other"))
    waiting.elsewhere = "was made on the device itself";
  if (!reply.Done() || !reply.body["id"].isString()) return waiting;
  waiting.id = reply.body["id"].asString();
  waiting.seconds_left = reply.body["seconds_left"].asInt();
  return waiting;
}

// ---- one document after the other ----

enum class Step { kDone, kRefused, kNoAnswer, kChangedMeanwhile };

// kDone while the document is as it was shown, or already as it is to be.
Step LookAgain(ConfigDevice& device, const Change& change, Json::Value& now) {
  std::optional<Json::Value> read = device.ReadDocument(*change.part);
  if (!read) return Step::kNoAnswer;
  now = std::move(*read);
  const bool as_before = now == change.before || (now.empty() && change.before.empty());
  if (as_before || now == change.after) return Step::kDone;
  std::cout << change.part->name << ": somebody has changed it meanwhile, nothing more is set:\n";
  for (const std::string& line : Changes(change.before, now)) std::cout << "  " << line << "\n";
  return Step::kChangedMeanwhile;
}

Step SetDocumentOf(ConfigDevice& device, const Change& change) {
  Json::Value now;
  if (const Step step = LookAgain(device, change, now); step != Step::kDone) return step;
  if (now == change.after) return Step::kDone;
  Reply reply = device.Set(*change.part, change.after);
  for (int attempt = 1; (!reply.Came() || reply.Away()) && attempt < kAttempts; ++attempt) {
    std::this_thread::sleep_for(kAttemptPause);
    reply = device.Set(*change.part, change.after);
  }
  if (!reply.Came() || reply.Away()) {
    if (!reply.Came()) device.Explain(reply);
    if (reply.Away()) Note(change.part->name + ": " + words::Printable(reply.error_msg));
    return Step::kNoAnswer;
  }
  if (!reply.Done()) {
    std::cout << change.part->name << ": refused, " << reply.state << " " << words::Printable(reply.error_msg) << "\n";
    return Step::kRefused;
  }
  const std::optional<Json::Value> stored = device.ReadDocument(*change.part);
  if (!stored) return Step::kNoAnswer;
  if (*stored == change.after) {
    std::cout << change.part->name << ": set\n";
    return Step::kDone;
  }
  std::cout << change.part->name << ": refused, the device answered well and stored something else:\n";
  for (const std::string& line : Changes(change.after, *stored)) std::cout << "  " << line << "\n";
  return Step::kRefused;
}

int SetAll(ConfigDevice& device, const ConfigState& state, const std::vector<Change>& changes) {
  int status = kDone;
  for (const Change& change : changes) {
    switch (SetDocumentOf(device, change)) {
      case Step::kDone:
        break;
      case Step::kRefused:
        status = kRefused;
        break;
      case Step::kChangedMeanwhile:
        return kRefused;  // the next run names what is left
      case Step::kNoAnswer:
        Note("ended half way: the next apply says what is left, and sets it");
        return kNoAnswer;
    }
  }
  state.EndRun(status == kDone);
  return status;
}

// What an earlier run that ended half way has left to set comes along; where both name a document, this one's counts.
void TakeUpUnfinished(const ConfigState& state, const Configuration& held, Configuration& wanted) {
  std::optional<Configuration> unfinished = state.UnfinishedRun();
  if (!unfinished) return;
  const size_t left = Difference(held, *unfinished).size();
  std::cout << "an earlier run ended half way, " << left << " of its " << unfinished->documents.size()
            << " documents are left to set\n";
  for (config::Document& document : unfinished->documents) {
    const auto is_same = [&](const config::Document& other) { return other.part == document.part; };
    if (std::none_of(wanted.documents.begin(), wanted.documents.end(), is_same)) {
      wanted.documents.push_back(std::move(document));
    }
  }
  const auto in_order = [](const config::Document& a, const config::Document& b) { return a.part < b.part; };
  std::sort(wanted.documents.begin(), wanted.documents.end(), in_order);
}

// Another parkctl of this user is at it: what it sets is what would change under this one's feet.
int RefuseBesideAnother(const ConfigState& state, const Configuration& held) {
  const std::optional<Configuration> run = state.UnfinishedRun();
  Note(std::string("another parkctl changes this device's configuration right now, nothing is set") +
       (run ? ". It is setting:" : ""));
  if (run) Show(Difference(held, *run));
  return kRefused;
}

// ---- a change that goes back by itself ----

Json::Value TryRequest(const std::string& id, int seconds, const std::vector<Change>& changes) {
  Json::Value request = GuardRequest(relay::kTryChange, id);
  request[bs::kBody]["seconds"] = seconds;
  for (const Change& change : changes) {
    request[bs::kBody]["changes"].append(config::StoringRequest(*change.part, change.after));
  }
  return request;
}

int TellTried(const ConfigDevice& device, const Reply& reply, int seconds) {
  if (!reply.Came()) return device.Explain(reply);
  if (reply.Away()) {
    Note(words::Printable(reply.error_msg));
    return kNoAnswer;
  }
  if (!reply.Done()) {
    std::cout << "refused, " << reply.state << " " << words::Printable(reply.error_msg)
              << (reply.state == relay::kLeftAsTried ? "" : ": everything is as it was") << "\n";
    return kRefused;
  }
  for (const Json::Value& stored : reply.body["stored"]) {
    std::cout << words::Printable(stored[bs::kType].asString()) << ": " << OneLineText(stored[bs::kBody]) << "\n";
  }
  std::cout << "set for " << seconds << " s: \"parkctl config confirm\" keeps it, else everything goes back\n";
  return kDone;
}

int TryAll(ConfigDevice& device, const ConfigOptions& options, const std::string& id,
           const std::vector<Change>& changes) {
  for (const Change& change : changes) {
    Json::Value now;
    const Step step = LookAgain(device, change, now);
    if (step != Step::kDone) return step == Step::kNoAnswer ? kNoAnswer : kRefused;
  }
  if (!device.remote() && !EnsureChangeGuard(options.device)) {
    Note(
        "the process that would set everything back does not answer: nothing is set. On an installed device it is "
        "business-server-guard");
    return kNoAnswer;
  }
  return TellTried(device, device.AskGuard(TryRequest(id, options.confirm_s, changes)), options.confirm_s);
}

// The change that was tried stays, and with it what an earlier run had left to set.
void EndTry(ConfigDevice& device) {
  const ConfigState state(device.FileName());
  if (!state.alone()) return;
  if (const std::optional<Configuration> held = device.Read()) {
    state.SettleTry(*held);
    state.EndRun(true);
  }
}

int RefuseWhileWaiting(const Waiting& waiting) {
  Note("a change waits to be confirmed, " + std::to_string(waiting.seconds_left) +
       " s are left: \"parkctl config confirm\" keeps it, \"parkctl config rollback\" takes it back");
  return kRefused;
}

}  // namespace

int ExportConfiguration(const ConfigOptions& options) {
  ConfigDevice device(options.device);
  std::optional<Configuration> held = device.Read();
  if (!held) return kNoAnswer;
  std::vector<config::Document>& documents = held->documents;
  const auto nameless = std::find_if(documents.begin(), documents.end(), HasNoIdentity);
  if (nameless != documents.end()) {
    Note(nameless->part->name + " is left out: the beacon module has not said who it is, and the device stored that");
    documents.erase(nameless);
  }
  const std::string text = config::FileText(*held);
  if (options.file.empty() || options.file == "-") {
    std::cout << text << std::flush;
    return kDone;
  }
  if (const std::string problem = WriteWholeFile(options.file, text); !problem.empty())  // it may hold a key
    throw UserError("cannot write '" + options.file + "': " + problem);
  std::cout << options.file << ": " << held->documents.size() << " documents\n";
  return kDone;
}

int CheckConfiguration(const ConfigOptions& options) {
  Configuration configuration;
  if (!ReadSound(options.file, configuration)) return kMisused;
  std::cout << options.file << ": " << configuration.documents.size() << " documents, all valid\n";
  return kDone;
}

int ShowDifference(const ConfigOptions& options) {
  Configuration wanted;
  if (!ReadSound(options.file, wanted)) return kMisused;
  ConfigDevice device(options.device);
  const std::optional<Configuration> held = device.Read();
  if (!held) return kNoAnswer;
  const std::vector<Change> changes = Difference(*held, wanted);
  Show(changes);
  if (changes.empty()) std::cout << "nothing differs\n";
  return changes.empty() ? kDone : kRefused;
}

int ApplyConfiguration(const ConfigOptions& options) {
  Configuration wanted;
  if (!ReadSound(options.file, wanted)) return kMisused;
  ConfigDevice device(options.device);
  const ConfigState state(device.FileName());
  const std::string id = ChangeId(wanted);
  const Waiting waiting = WaitingChange(device, options);
  if (waiting.status == kNoAnswer) return kNoAnswer;
  if (!waiting.id.empty()) {
    if (waiting.id != id || options.confirm_s == 0) return RefuseWhileWaiting(waiting);
    Json::Value request = GuardRequest(relay::kTryChange, id);
    request[bs::kBody]["seconds"] = options.confirm_s;
    return TellTried(device, device.AskGuard(request), options.confirm_s);
  }
  if (!waiting.elsewhere.empty()) return RefuseForOther(waiting);
  const std::optional<Configuration> held = device.Read();
  if (!held) return kNoAnswer;
  if (!state.alone()) return RefuseBesideAnother(state, *held);
  if (!IsForThisDevice(wanted, *held, options.other_device || options.replace)) return kMisused;
  if (!options.replace) LeaveIdentityOut(*held, wanted);
  state.SettleTry(*held);
  TakeUpUnfinished(state, *held, wanted);
  const std::vector<Change> changes = Difference(*held, wanted);
  if (changes.empty()) {
    state.EndRun(true);
    std::cout << "nothing differs\n";
    return kDone;
  }
  Show(changes);
  if (!options.yes && !Agrees()) return kRefused;
  if (options.confirm_s > 0) {
    state.BeginTry(*held);
    const int status = TryAll(device, options, id, changes);
    if (status == kRefused) state.DropTry();
    return status;
  }
  state.KeepLastGood(*held);
  state.BeginRun(changes);
  return SetAll(device, state, changes);
}

int ConfirmConfiguration(const ConfigOptions& options) {
  ConfigDevice device(options.device);
  const Waiting waiting = WaitingChange(device, options);
  if (waiting.status == kNoAnswer) return kNoAnswer;
  if (waiting.id.empty()) {
    if (!waiting.elsewhere.empty()) return RefuseForOther(waiting);
    Note(waiting.status == kRefused ? "refused, " + waiting.problem : "no change waits to be confirmed");
    return kRefused;
  }
  const Reply reply = device.AskGuard(GuardRequest(relay::kKeepChange, waiting.id));
  if (!reply.Came()) return device.Explain(reply);
  if (reply.Away()) {
    Note(words::Printable(reply.error_msg));
    return kNoAnswer;
  }
  std::cout << (reply.Done() ? "kept" : "not kept: " + words::Printable(reply.error_msg)) << "\n";
  if (reply.Done()) EndTry(device);
  return reply.Done() ? kDone : kRefused;
}

int RollBackConfiguration(const ConfigOptions& options) {
  ConfigDevice device(options.device);
  const Waiting waiting = WaitingChange(device, options);
  if (waiting.status == kNoAnswer) return kNoAnswer;
  if (!waiting.id.empty()) {
    const Reply reply = device.AskGuard(GuardRequest(relay::kUndoChange, waiting.id));
    if (!reply.Came()) return device.Explain(reply);
    if (reply.Away()) {
      Note(words::Printable(reply.error_msg));
      return kNoAnswer;
    }
    std::cout << (reply.Done() ? "everything is as it was" : words::Printable(reply.error_msg)) << "\n";
    return reply.Done() ? kDone : kRefused;
  }
  if (!waiting.elsewhere.empty()) return RefuseForOther(waiting);
  const ConfigState state(device.FileName());
  const std::optional<Configuration> held = device.Read();
  if (!held) return kNoAnswer;
  if (!state.alone()) return RefuseBesideAnother(state, *held);
  state.SettleTry(*held);
  const std::optional<Configuration> good = state.LastGood();
  if (!good) {
    Note("nothing was set on this device from here: there is nothing to go back to");
    return kRefused;
  }
  std::vector<Change> changes = Difference(*held, *good);
  for (const config::Document& document : held->documents) {
    // Only the relay's document can be taken away: every other has a default.
    const auto same_part = [&](const config::Document& other) { return other.part == document.part; };
    const bool was_there = std::any_of(good->documents.begin(), good->documents.end(), same_part);
    if (document.part->name == config::kRelayDocument && !was_there)
      changes.push_back({document.part, document.value, {}});
  }
  if (changes.empty()) std::cout << "everything is as it was\n";
  Show(changes);
  state.BeginRun(changes);
  return SetAll(device, state, changes);
}

}  // namespace parkctl
