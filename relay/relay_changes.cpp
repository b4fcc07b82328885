// Requests that the relay answers itself: about its own document, and about changes that are tried.
#include <utility>
#include <variant>

#include "protocol/names.h"
#include "relay/relay.h"

namespace relay {

namespace {

bool IsOwn(std::string_view type) { return type == kGetRelayCfg || type == kSetRelayCfg; }

}  // namespace

bool Relay::TakeOwnRequest(const Requester& requester, std::string_view payload, Milliseconds now) {
  if (!IsOwn(requester.type) && !ChangeGuard::Takes(requester.type)) return false;
  Json::Value request;
  ParseObject(payload, &request);  // it was, a moment ago
  if (IsOwn(requester.type)) {
    BeginOwn({requester, requester.type, request[bs::kBody]}, now);
    return true;
  }
  const uint64_t token = ++last_request_;
  guard_requesters_[token] = requester;
  guard_.Request(token, request, now);
  return true;
}

void Relay::BeginOwn(OwnRequest own, Milliseconds now) {
  if (own.type == kGetRelayCfg) {
    Do(ReadStore{StoreKey::kMembershipAsked});
    own_requests_.push_back(std::move(own));
    return;
  }
  // Only what goes back to no document at all comes without one.
  const bool erases = own.body.isNull() && !own.requester;
  const std::string text = erases ? "" : CompactText(own.body);
  std::string problem;
  if (!erases && !ParseMembership(text, &problem)) {
    EndOwn(own, 404, "set error: " + problem, Json::Value(), now);
    return;
  }
  Do(WriteStore{StoreKey::kMembership, text});
  own_requests_.push_back(std::move(own));
}

// The store answers in the order in which it was asked.
std::optional<Relay::OwnRequest> Relay::OldestOwn() {
  if (own_requests_.empty()) return std::nullopt;
  std::optional<OwnRequest> own = std::move(own_requests_.front());
  own_requests_.pop_front();
  return own;
}

void Relay::TakeOwnDocument(Found found, std::string_view text, Milliseconds now) {
  const auto own = OldestOwn();
  if (!own) return;
  if (found == Found::kUnreachable) {
    EndOwn(*own, 503, "the store does not answer", Json::Value(), now);
    return;
  }
  Json::Value document;
  if (found == Found::kNo || !ParseObject(text.substr(0, text.find('\0')), &document)) document = Json::Value();
  EndOwn(*own, 200, "All done", document, now);
}

void Relay::StoreWritten(StoreKey key, bool done, Milliseconds now) {
  if (key == StoreKey::kChange) {
    guard_.Stored(done, now);
  } else if (const auto own = OldestOwn()) {
    EndOwn(*own, done ? 200 : 503, done ? "All done" : "the store does not answer", Json::Value(), now);
    ReadMembership();
  }
  Turn(now);
}

void Relay::EndOwn(const OwnRequest& own, int state, const std::string& error_msg, const Json::Value& body,
                   Milliseconds now) {
  const std::string reply = ReplyText(own.type, state, error_msg, body);
  if (own.requester) {
    Answer(*own.requester, reply);
  } else {
    guard_.Answered(reply, now);
  }
}

void Relay::TakeStoredChange(Found found, std::string_view text, Milliseconds now) {
  read_change_again_ = found == Found::kUnreachable ? now + kStoreRetry : kNever;
  if (found == Found::kYes) guard_.Restore(text, now);
}

// A change that is on its way, or has to be set back, needs the device also where the site may ask nothing any more.
void Relay::AllowOrForbidRequests() {
  const bool allowed = membership_.in_force.remote != Remote::kOff || !guard_.IsIdle();
  if (std::exchange(requests_allowed_, allowed) != allowed) Do(AllowRequests{allowed});
}

void Relay::TurnGuard(Milliseconds now) {
  if (now >= read_change_again_) {
    read_change_again_ = kNever;
    Do(ReadStore{StoreKey::kChange});
  }
  WakeAt(read_change_again_);
  guard_.Turn(now);
  AllowOrForbidRequests();
  for (auto wishes = guard_.Take(); !wishes.empty(); wishes = guard_.Take()) {
    for (ChangeGuard::Wish& wish : wishes) {
      if (auto* const ask = std::get_if<ChangeGuard::Ask>(&wish)) {
        guard_ask_ = 0;
        if (IsOwn(ask->type)) {
          Json::Value request;
          ParseObject(ask->text, &request);
          BeginOwn({std::nullopt, ask->type, request[bs::kBody]}, now);
        } else {
          guard_ask_ = ++last_request_;
          Do(AskDevice{guard_ask_, std::move(ask->text)});
        }
      } else if (auto* const answer = std::get_if<ChangeGuard::Answer>(&wish)) {
        const auto requester = guard_requesters_.find(answer->token);
        if (requester == guard_requesters_.end()) continue;  // the connection that it came by has gone
        Answer(requester->second, std::move(answer->text));
        guard_requesters_.erase(requester);
      } else if (auto* const store = std::get_if<ChangeGuard::Store>(&wish)) {
        Do(WriteStore{StoreKey::kChange, std::move(store->text)});
      } else if (auto* const look = std::get_if<ChangeGuard::Look>(&wish)) {
        Do(ReadStore{StoreKey::kDocument, look->document});
      } else if (auto* const say = std::get_if<ChangeGuard::Say>(&wish)) {
        Do(Say{say->level, std::move(say->text)});
      }
    }
  }
  AllowOrForbidRequests();
  WakeAt(guard_.NextTurn());
  // What was set takes effect after it has been answered.
  if (membership_.read_later && !guard_.IsAtWork()) {
    membership_.read_later = false;
    ReadMembership();
  }
}

}  // namespace relay
