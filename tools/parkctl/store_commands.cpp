#include "store_commands.h"

#include <cstdio>
#include <iostream>

#include "console.h"
#include "contract/check.h"
#include "kvdb_whole.h"
#include "migrations.h"
#include "plain_words.h"
#include "protocol/json_text.h"
#include "stored_text.h"

namespace parkctl {

using businessserver::StoredDocument;

namespace {

constexpr size_t kListedText = 70;  // bytes of a document shown in the list, or a little less

std::string Listed(const std::string& text) {
  Json::Value document;
  return words::Beginning(
      businessserver::ParseJson(text, document) ? OneLineText(document) : "not JSON: " + words::Printable(text),
      kListedText);
}

void ShowChange(const std::string& line) {
  const Paint paint = line[0] == '+' ? Paint::kGood : line[0] == '-' ? Paint::kBad : Paint::kYellow;
  std::cout << "  " << Painted(paint, line) << "\n";
}

}  // namespace

int ListDocuments(uint16_t store_port) {
  const Store store(store_port);
  if (!store.IsUp()) return store.Explain();
  for (const StoredDocument* document : businessserver::kStoredDocuments) {
    std::string text;
    const Store::Found found = store.Read(*document, text);
    if (found == Store::Found::kUnreachable) return store.Explain();
    char name[64];
    snprintf(name, sizeof name, "%-30s", DocumentName(*document).c_str());
    std::cout << Painted(Paint::kStrong, name)
              << (found == Store::Found::kYes ? Listed(text) : Painted(Paint::kFaint, "-")) << "\n";
  }
  return kDone;
}

int GetDocument(uint16_t store_port, const std::string& name) {
  const StoredDocument& document = FindDocument(name);
  const Store store(store_port);
  std::string text;
  const Store::Found found = store.IsUp() ? store.Read(document, text) : Store::Found::kUnreachable;
  if (found == Store::Found::kUnreachable) return store.Explain();
  if (found == Store::Found::kNo) {
    const bool has_default = document.default_index != businessserver::kNoDefault;
    Note("nothing is stored under " + DocumentName(document) +
         (has_default ? ": the device takes its default when it next reads it" : ""));
    return kRefused;
  }
  Json::Value value;
  if (!businessserver::ParseJson(text, value)) {
    Note(DocumentName(document) + " holds no JSON: the device takes its default when it next reads it");
    std::cout << words::Printable(text) << "\n";
    return kRefused;
  }
  std::cout << IndentedText(value) << "\n";
  return kDone;
}

int SetDocument(uint16_t store_port, const SetOptions& options) {
  const StoredDocument& document = FindDocument(options.name);
  const Json::Value after = ParseUserJson(ReadSource(options.source), "the document");
  const std::string schema = "documents/" + DocumentName(document);
  if (!options.force && !SayFaults(contract::Check(schema, after))) return kMisused;
  const Store store(store_port);
  std::string old_text;
  const Store::Found found = store.IsUp() ? store.Read(document, old_text) : Store::Found::kUnreachable;
  if (found == Store::Found::kUnreachable) return store.Explain();

  Json::Value before;
  if (found == Store::Found::kYes && !businessserver::ParseJson(old_text, before)) {
    before = Json::Value();
    std::cout << DocumentName(document) << " held no JSON: " << words::Printable(old_text) << "\n";
  }
  std::cout << DocumentName(document) << (found == Store::Found::kNo ? ", new:\n" : ":\n");
  const auto changes = Changes(before, after);
  for (const std::string& line : changes) ShowChange(line);
  if (changes.empty()) std::cout << "  no value changes\n";
  if (options.only_show) return kDone;
  if (!store.Write(document, businessserver::StyledText(after))) {
    Note("the store did not take it");
    return kNoAnswer;
  }
  Note("stored. A running daemon keeps what it has read: \"parkctl request set_...\" stores and applies at once.");
  return kDone;
}

int ShowUnreadable(uint16_t store_port) {
  const Store store(store_port);
  KvdbDocuments documents;
  if (!store.IsUp() || Kvdb_ReadAll(KvdbPart::kUnreadable, &documents) != 1) return store.Explain();
  for (const auto& [key, text] : documents) {
    Json::Value document;
    std::string problem = "it is JSON, and was of no use";
    businessserver::ParseJson(text, document, &problem);
    std::cout << Painted(Paint::kStrong, words::Printable(key.c_str())) << "  (" << problem << ")\n"
              << words::Printable(text) << "\n";
  }
  if (documents.empty()) Note("none: every document could be read");
  return kDone;
}

int BringForward(uint16_t store_port) { return MigrateStore(ReleasedMigrations(), store_port); }

int BackUpStore(uint16_t store_port) {
  const Store store(store_port);
  if (!store.IsUp()) return store.Explain();
  if (Kvdb_BackupDatabase() != 1) {
    Note("the store did not make a backup: its own log says why");
    return kRefused;
  }
  std::cout << "the whole store is backed up\n";
  return kDone;
}

int RestoreStore(uint16_t store_port) {
  {
    const Store store(store_port);
    if (!store.IsUp()) return store.Explain();
    if (Kvdb_RestoreDatabase() != 1) {
      Note("nothing restored: there is no backup (\"parkctl store backup\" makes one)");
      return kRefused;
    }
  }
  std::cout << "the store is as it was backed up\n";
  const int status = BringForward(store_port);  // the backup may be of an earlier version
  if (status != kDone) return status;
  Note("the daemon goes on with the settings that it has: restart it to use these");
  return kDone;
}

}  // namespace parkctl
