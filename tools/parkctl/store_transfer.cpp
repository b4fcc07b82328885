#include "store_transfer.h"

#include <algorithm>
#include <ctime>
#include <iostream>
#include <map>

#include "console.h"
#include "contract/json_text.h"
#include "kvdb_whole.h"
#include "migrations.h"
#include "plain_words.h"
#include "relay/change_guard.h"
#include "store_file.h"
#include "stored_text.h"
#include "whole_file.h"

namespace parkctl {

namespace {

std::string NowText() {
  const time_t now = time(nullptr);
  char text[32];
  strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", gmtime(&now));
  return text;
}

std::string KeyText(const std::string& key) { return words::Printable(key.substr(0, key.find_last_not_of('\0') + 1)); }

// "+ key" for a new document, "~ key" for one that changes, "- key" for one that goes.
std::vector<std::string> DocumentChanges(const KvdbDocuments& before, const KvdbDocuments& after) {
  std::map<std::string, std::string> left(before.begin(), before.end());
  std::vector<std::string> lines;
  for (const auto& [key, value] : after) {
    const auto found = left.find(key);
    if (found == left.end()) {
      lines.push_back("+ " + KeyText(key));
    } else {
      if (found->second != value) lines.push_back("~ " + KeyText(key));
      left.erase(found);
    }
  }
  for (const auto& [key, value] : left) lines.push_back("- " + KeyText(key));
  return lines;
}

std::string KeyOf(const businessserver::StoredDocument& document) { return {document.key, document.key_length}; }

bool ChangeWaits(const KvdbDocuments& documents) {
  return std::any_of(documents.begin(), documents.end(), [](const auto& document) {
    return document.first == KeyOf(relay::kDeviceChange) || document.first == KeyOf(relay::kSiteChange);
  });
}

}  // namespace

int ExportStore(const TransferOptions& options) {
  const Store store(options.store_port);
  StoreFile file;
  if (!store.IsUp() || Kvdb_ReadAll(KvdbPart::kStore, &file.documents) != 1) return store.Explain();
  if (file.documents.empty()) {
    Note("the store is empty: there is nothing to export");
    return kRefused;
  }
  file.made = NowText();
  file.device = DeviceNameIn(file.documents);
  const std::string text = StoreFileText(file);
  if (text.size() > contract::kTextLimit) {
    Note("the store holds more than an import would take, 16 MiB");
    return kRefused;
  }
  if (options.file == "-") {
    std::cout << text << std::flush;
    return std::cout ? kDone : kRefused;
  }
  const std::string problem = WriteWholeFile(options.file, text);
  if (!problem.empty()) {
    Note("cannot write '" + options.file + "': " + problem);
    return kRefused;
  }
  std::cout << options.file << ": " << file.documents.size() << " documents\n";
  return kDone;
}

int ImportStore(const TransferOptions& options) {
  StoreFile file;
  const std::string problem = ReadStoreFile(ReadSource(options.file == "-" ? "-" : "@" + options.file), file);
  if (!problem.empty()) {
    Note(problem);
    return kMisused;
  }
  const MigrationResult migrated = Migrate(ReleasedMigrations(), file.documents);
  if (!migrated.problem.empty()) {
    Note(migrated.problem);
    return kMisused;
  }
  const Store store(options.store_port);
  KvdbDocuments held;
  if (!store.IsUp() || Kvdb_ReadAll(KvdbPart::kStore, &held) != 1) return store.Explain();
  const std::string name = DeviceNameIn(held);
  if (!options.other_device && !name.empty() && name != file.device) {
    Note("the file is of " + (file.device.empty() ? "a device without a name" : words::Printable(file.device)) +
         ", this device is " + words::Printable(name) + ": --other-device takes it all the same");
    return kMisused;
  }
  if (ChangeWaits(held)) {
    Note("a change waits to be confirmed and would be set back over this: confirm it or take it back first");
    return kRefused;
  }
  const std::vector<std::string> changes = DocumentChanges(held, file.documents);
  for (const std::string& line : changes) std::cout << "  " << line << "\n";
  if (changes.empty()) std::cout << "the store is as in the file\n";
  if (options.only_show || changes.empty()) return kDone;
  if (Kvdb_ReplaceAll(file.documents) != 1) {
    Note("the store did not take it and is as it was: its own log says why");
    return kNoAnswer;
  }
  std::cout << "the store is as it was on " << file.made << ": " << file.documents.size() << " documents\n";
  Note("the daemon goes on with the settings that it has: restart it to use these");
  return kDone;
}

}  // namespace parkctl
