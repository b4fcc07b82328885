// A relay's decisions: each part is the letter of what happens and what comes with it. It never turns for ever, says
// and pushes only what is well formed and possible, stays on its own topics, and answers a request once at most.
#include "relay/relay.h"

#include <map>
#include <set>

#include "once.h"
#include "parts.h"
#include "protocol/names.h"
#include "target.h"

namespace {

namespace bs = businessserver;
using relay::Milliseconds;

constexpr char kMembership[] = R"({"site":"garage","device":"A","broker":"mqtt://198.18.0.1","remote":"configure"})";
constexpr Milliseconds kSteps[] = {1, 99, 1000, 5000, 20000, 71000, 600000};

class Stage {
 public:
  Stage() {
    store_["relay_value"] = kMembership;
    Collect();
    relay_.BusUp(now_), Collect();
    relay_.HubUp(now_), Collect();
    relay_.HubSubscribed(now_), Collect();
    Pass(1000);
  }

  void Happens(std::string_view what) {
    switch (fuzz::Choose(what, 14)) {
      case 0:
        Pass(kSteps[fuzz::Choose(what, std::size(kSteps))]);
        break;
      case 1:
        relay_.BusHeard(bs::kBusBroadcastMessage, what, now_);
        break;
      case 2:
        Hear(bs::PlanTopic("garage", "A"), what, true);
        break;
      case 3: {  // counts: "B/L2/C", a line feed, the counts
        const size_t line = std::min(what.find('\n'), what.size());
        Hear("park/garage/counts/" + std::string(what.substr(0, line)), what.substr(line), line % 2 == 0);
        break;
      }
      case 4:
        Ask(what);
        break;
      case 5:
        if (!asked_.empty()) {
          relay_.DeviceAnswered(*asked_.begin(), what, now_);
          asked_.erase(asked_.begin());
        }
        break;
      case 6:
        store_["relay_value"] = what;
        relay_.BusHeard(bs::kHttpBroadcastMessageRoot, R"({"type": "changed"})", now_);
        break;
      case 7:
        store_["bus_dev_pos_value"] = store_["device_ttyio_value"] = what;
        break;
      case 8:
        reachable_ = !reachable_;
        break;
      case 9:
        Hear(bs::HealthTopic("garage", "A"), what, false);
        break;
      case 10:
        relay_.HubDown(now_);
        break;
      case 11:
        relay_.HubUp(now_), Collect();
        relay_.HubSubscribed(now_);
        break;
      case 12:
        relay_.BusHeard(bs::kHttpRequestMessageRoot, what, now_);
        break;
      case 13:
        what.empty() ? relay_.BusUp(now_) : relay_.BusDown(now_);
        break;
    }
    Collect();
  }

  void Pass(Milliseconds duration) {
    const Milliseconds end = now_ + duration;
    while (relay_.NextTurn() <= end) {
      const bool again = relay_.NextTurn() <= now_;
      now_ = std::max(now_, relay_.NextTurn());
      relay_.Turn(now_);
      Collect();
      MUST_HOLD(!again || relay_.NextTurn() > now_);
    }
    now_ = end;
  }

 private:
  void Hear(const std::string& topic, std::string_view payload, bool kept) {
    relay_.HubHeard({topic, payload, kept, "", std::nullopt}, now_);
  }

  void Ask(std::string_view payload) {
    const std::string correlation = std::to_string(++requests_);
    waiting_.insert(correlation);
    relay_.HubHeard({bs::RequestTopic("garage", "A"), payload, false, "park/garage/reply/desk/1", correlation}, now_);
  }

  void Collect() {
    for (auto outputs = relay_.Take(); !outputs.empty(); outputs = relay_.Take()) {
      for (const relay::Output& output : outputs) {
        std::visit([this](const auto& what) { Do(what); }, output);
      }
    }
  }

  template <typename What>
  void Do(const What&) {}  // nothing that could be wrong

  void Do(const relay::ConnectHub& what) { CheckTopic(what.will_topic); }
  void Do(const relay::PublishHub& what) {
    CheckTopic(what.topic);
    if (what.correlation) {  // an answer, maybe in the device's own words
      MUST_HOLD(waiting_.erase(*what.correlation) == 1);
    } else {
      MustBeObject(what.payload);
    }
  }
  void Do(const relay::PushCounts& what) {
    static std::vector<size_t> passed;
    fuzz::OnceFor(what.text, passed, [&] {
      Json::Value push;
      MUST_HOLD(relay::ParseObject(what.text, &push));
      MUST_HOLD(push["free"].asUInt() <= push["totle"].asUInt() && push["totle"].asUInt() <= bs::kSiteSpacesMax);
    });
  }
  void Do(const relay::AskDevice& what) {
    MUST_HOLD(asked_.insert(what.id).second);
    if (asked_.size() > 64) asked_.erase(asked_.begin());  // given up by the relay long since
  }
  void Do(const relay::ReadStore& what) {
    const auto held = store_.find(KeyOf(what.key, what.document));
    if (!reachable_) {
      relay_.StoreRead(what.key, relay::Found::kUnreachable, "", now_);
    } else if (held == store_.end()) {
      relay_.StoreRead(what.key, relay::Found::kNo, "", now_);
    } else {
      relay_.StoreRead(what.key, relay::Found::kYes, held->second, now_);
    }
  }
  void Do(const relay::WriteStore& what) {
    MustBeObject(what.text);
    const std::string key = KeyOf(what.key, nullptr);
    if (reachable_ && what.text.empty()) store_.erase(key);
    if (reachable_ && !what.text.empty()) store_[key] = what.text;
    relay_.StoreWritten(what.key, reachable_, now_);
  }

  static void MustBeObject(const std::string& text) {
    static std::vector<size_t> passed;
    fuzz::OnceFor(text, passed, [&] {
      Json::Value document;
      MUST_HOLD(text.empty() || relay::ParseObject(text, &document));
    });
  }

  static std::string KeyOf(relay::StoreKey key, const bs::StoredDocument* document) {
    if (key == relay::StoreKey::kDocument) return std::string(document->key, document->key_length);
    return key == relay::StoreKey::kChange ? "relay_change_value" : "relay_value";
  }

  // Its own branches of its own site, whatever its document calls those.
  static void CheckTopic(std::string_view topic) {
    MUST_HOLD(topic.substr(0, 5) == "park/" && topic.find_first_of("#+") == std::string_view::npos);
  }

  std::map<std::string, std::string> store_;
  bool reachable_ = true;
  std::set<uint64_t> asked_;
  uint64_t requests_ = 0;
  std::set<std::string> waiting_;
  Milliseconds now_ = 1000000;
  relay::Relay relay_{relay::Start{"5e0c11a7", "1.1.0", 1763900000, 1}, now_};
};

}  // namespace

FUZZ_TARGET(input) {
  Stage stage;
  for (const std::string_view part : fuzz::Parts(input)) stage.Happens(part);
  stage.Pass(100000);
}
