// A site's plans as people write them, as JSON or as a spreadsheet (the first byte is c): what could be read can be
// shown, and what has no mistake is the same after it was written and read again.
#include "json_words.h"
#include "parts.h"
#include "site/csv.h"
#include "site/difference.h"
#include "site/plan.h"
#include "site/tree.h"
#include "target.h"

static std::string TextOf(const Json::Value& document) { return words::CompactText(document); }

FUZZ_TARGET(input) {
  std::vector<site::Mistake> mistakes;
  const bool is_csv = fuzz::Choose(input, 4) == 2;
  const site::Site site = is_csv ? site::ImportCsv(input, "garage", mistakes) : site::ReadSite(input, mistakes);
  const bool read = mistakes.empty();
  site::CheckSite(site, mistakes);
  for (const site::Mistake& mistake : mistakes) {
    for (const char c : mistake.Text()) MUST_HOLD(static_cast<uint8_t>(c) >= 0x20 && c != 0x7F);
  }
  site::TreeText(site);
  site::DotText(site);
  if (!read) return;

  const std::string text = TextOf(site::SiteDocument(site));
  const site::Site again = site::ReadSite(text, mistakes = {});
  MUST_HOLD(mistakes.empty() && TextOf(site::SiteDocument(again)) == text);
  std::map<std::string, std::string> kept;
  for (const auto& [name, plan] : site.devices) {
    kept[name] = TextOf(site::PlanDocument(plan));
    site::Plan of_hub;
    MUST_HOLD(site::ReadPlan(kept[name], of_hub) && TextOf(site::PlanDocument(of_hub)) == kept[name]);
  }
  MUST_HOLD(site::Difference(site, kept).empty());
}
