// What a relay reads: the counts and the topics of others, plans, its own document, the daemon's broadcasts. Taken is
// only what can be meant, and counts that were taken are written as they were read.
#include "parts.h"
#include "protocol/site_names.h"
#include "relay/documents.h"
#include "relay/own_counts.h"
#include "relay/remote_requests.h"
#include "target.h"

namespace bs = businessserver;

FUZZ_TARGET(input) {
  std::string problem;
  switch (fuzz::Choose(input, 6)) {
    case 0:
      if (const auto counts = relay::ParseCounts(input)) {
        MUST_HOLD(counts->free <= counts->spaces && counts->spaces <= bs::kSiteSpacesMax);
        MUST_HOLD(relay::ParseCounts(relay::CountsText(*counts)) == counts);
      }
      break;
    case 1:
      if (const auto source = relay::ParseCountsTopic("garage", input)) {
        MUST_HOLD(bs::IsSiteName(source->device) && bs::IsZone(source->zone));
        MUST_HOLD(bs::CountsTopic("garage", source->device, source->zone) == input);
      }
      break;
    case 2:
      if (const auto plan = relay::ParsePlan(input, &problem)) {
        MUST_HOLD(bs::IsZone(plan->zone));
        for (const auto& zones : plan->shows) {
          for (const std::string& zone : zones) MUST_HOLD(bs::IsZone(zone));
        }
      } else {
        MUST_HOLD(!problem.empty());
      }
      break;
    case 3:
      if (const auto membership = relay::ParseMembership(input, &problem)) {
        MUST_HOLD(membership->host.empty() ||
                  (bs::IsSiteName(membership->site) && bs::IsSiteName(membership->device) && membership->port != 0));
      } else {
        MUST_HOLD(!problem.empty());
      }
      break;
    case 4:
      if (const auto frame = relay::ReadFrame(input)) MUST_HOLD(!frame->own || frame->own->free <= frame->own->spaces);
      break;
    default: {
      const relay::Verdict nobody = relay::Judge(input, relay::Remote::kOff);
      const relay::Verdict reader = relay::Judge(input, relay::Remote::kRead);
      const relay::Verdict owner = relay::Judge(input, relay::Remote::kConfigure);
      MUST_HOLD(nobody.state != relay::kAllowed);
      MUST_HOLD(reader.state != relay::kAllowed || owner.state == relay::kAllowed);
      MUST_HOLD(relay::IsReplyTopic("garage", input) ==
                (input.size() > 18 && input.substr(0, 18) == "park/garage/reply/" &&
                 input.find_first_of("#+") == input.npos));
    }
  }
}
