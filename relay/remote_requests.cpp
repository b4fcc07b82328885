#include "relay/remote_requests.h"

#include <algorithm>
#include <utility>

#include "protocol/commands.h"
#include "relay/change_guard.h"

namespace relay {

Verdict Judge(std::string_view text, Remote remote) {
  Json::Value request;
  if (!ParseObject(text, &request) || !request[bs::kType].isString()) return {400, "not a request", ""};
  std::string type = request[bs::kType].asString();
  if (remote == Remote::kOff) return {403, "remote requests are off", std::move(type)};
  const bool reads = bs::IsReadingName(type);
  const bool configures = bs::IsConfiguringName(type) || ChangeGuard::Takes(type);
  const bool allowed = reads || (remote == Remote::kConfigure && configures);
  if (!allowed) return {403, "not allowed from the site", std::move(type)};
  return {kAllowed, "", std::move(type)};
}

std::string RefusalText(int state, const std::string& error_msg, const std::string& type) {
  return ReplyText(type, state, error_msg, Json::Value());
}

bool IsReplyTopic(std::string_view site, std::string_view topic) {
  const std::string prefix = bs::ReplyTopic(site, "");
  if (topic.size() <= prefix.size() || topic.substr(0, prefix.size()) != prefix) return false;
  return topic.find_first_of("+#") == std::string_view::npos;
}

void WaitingRequests::Add(uint64_t id, Requester requester, Milliseconds now) {
  waiting_.push_back({id, std::move(requester), now + kPatience});
}

std::optional<Requester> WaitingRequests::Take(uint64_t id) {
  const auto found =
      std::find_if(waiting_.begin(), waiting_.end(), [&](const Waiting& waiting) { return waiting.id == id; });
  if (found == waiting_.end()) return std::nullopt;
  Requester requester = std::move(found->requester);
  waiting_.erase(found);
  return requester;
}

std::vector<Requester> WaitingRequests::TakeOverdue(Milliseconds now) {
  std::vector<Requester> overdue;
  while (!waiting_.empty() && now >= waiting_.front().until) {
    overdue.push_back(std::move(waiting_.front().requester));
    waiting_.pop_front();
  }
  return overdue;
}

}  // namespace relay
