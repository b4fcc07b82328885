#include "migrations.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "protocol/json_text.h"
#include "stored_text.h"

namespace parkctl {

namespace bs = businessserver;

namespace {

constexpr std::string_view kNumberKey = "store_form_value";  // in decimal; a store without has been through none

auto Find(KvdbDocuments& documents, std::string_view key) {
  return std::find_if(documents.begin(), documents.end(),
                      [key](const auto& document) { return document.first == key; });
}

// Negative: it is no number.
int64_t NumberIn(const std::string& text) {
  int64_t number = -1;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && rest == end ? number : -1;
}

std::string Apply(const Migration& migration, KvdbDocuments& documents) {
  const bs::StoredDocument& row = *migration.document;
  const auto found = Find(documents, {row.key, row.key_length});
  if (found == documents.end()) return "";
  Json::Value document;
  if (!bs::ParseJson(found->second.substr(0, found->second.find_last_not_of('\0') + 1), document)) {
    return "no JSON, left as it is";
  }
  try {
    migration.change(document);
  } catch (const Json::Exception&) {
    return "not of the form before, left as it is";
  }
  found->second = bs::StyledText(document);
  return "brought into its new form";
}

}  // namespace

const Migrations& ReleasedMigrations() {
  static const Migrations kReleased = {};  // the documents are in the form of 1.0.0
  return kReleased;
}

MigrationResult Migrate(const Migrations& migrations, KvdbDocuments& documents) {
  MigrationResult result;
  auto number = Find(documents, kNumberKey);
  const int64_t reached = number == documents.end() ? 0 : NumberIn(number->second);
  const auto last = static_cast<int64_t>(migrations.size());
  if (reached < 0 || reached > last) {
    result.problem = "the documents are of a later version than this parkctl (form " +
                     (reached < 0 ? "unknown" : std::to_string(reached)) + ", this one knows " + std::to_string(last) +
                     "): they stay as they are";
    return result;
  }
  if (reached == last) return result;
  for (int64_t next = reached; next < last; ++next) {
    const Migration& migration = migrations[static_cast<size_t>(next)];
    const std::string done = Apply(migration, documents);
    if (!done.empty()) {
      result.lines.push_back("migration " + std::to_string(next + 1) + ": " + DocumentName(*migration.document) + ": " +
                             done);
    }
  }
  if (number == documents.end()) {
    documents.emplace_back(kNumberKey, "");
    std::sort(documents.begin(), documents.end());
    number = Find(documents, kNumberKey);
  }
  number->second = std::to_string(last);
  result.changed = true;
  return result;
}

}  // namespace parkctl
