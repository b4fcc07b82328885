#include "stored_text.h"

#include <chrono>
#include <iterator>
#include <map>
#include <thread>

#include "console.h"
#include "kvdb.h"
#include "plain_words.h"
#include "protocol/json_text.h"

namespace parkctl {

using businessserver::StoredDocument;

namespace {

constexpr char kHost[] = "127.0.0.1";
constexpr char kUsualEnding[] = "_value";
constexpr std::chrono::seconds kPatience{3};
constexpr std::chrono::milliseconds kPause{100};

using Values = std::map<std::string, std::string>;

Values ValuesOf(const Json::Value& document) {
  Values values;
  for (const auto& [path, value] : words::Leaves(document)) {
    values[path.empty() ? "(the whole)" : path] = OneLineText(*value);
  }
  return values;
}

// The library gives a store half a second, for a loop that serves others. A person rather waits than hears that a busy
// machine's store is away.
template <typename Attempt>
bool Patiently(const Attempt& succeeds) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!succeeds()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(kPause);
  }
  return true;
}

void KeepText(const char*, int, const char* value, int length, void* text) {
  static_cast<std::string*>(text)->assign(value, static_cast<size_t>(length));
}

}  // namespace

std::string DocumentName(const StoredDocument& document) { return document.key; }

const StoredDocument& FindDocument(const std::string& name) {
  std::vector<const StoredDocument*> matches;
  for (const StoredDocument* document : businessserver::kStoredDocuments) {
    const std::string key = DocumentName(*document);
    if (key == name || key == name + kUsualEnding) return *document;
    if (!name.empty() && key.find(name) != std::string::npos) matches.push_back(document);
  }
  if (matches.size() == 1) return *matches.front();
  const bool none = matches.empty();
  if (none) matches.assign(std::begin(businessserver::kStoredDocuments), std::end(businessserver::kStoredDocuments));
  std::string names;
  for (const StoredDocument* document : matches) names += "\n  " + DocumentName(*document);
  throw UserError("'" + words::Printable(name) + (none ? "' is no document; there are:" : "' could be any of:") +
                  names);
}

std::vector<std::string> Changes(const Json::Value& before, const Json::Value& after) {
  const Values old_values = before.isNull() ? Values() : ValuesOf(before);
  const Values new_values = ValuesOf(after);
  std::vector<std::string> lines;
  for (const auto& [path, value] : old_values) {
    const auto now = new_values.find(path);
    if (now == new_values.end()) {
      lines.push_back("- " + path + ": " + value);
    } else if (now->second != value) {
      lines.push_back("~ " + path + ": " + value + " -> " + now->second);
    }
  }
  for (const auto& [path, value] : new_values) {
    if (old_values.count(path) == 0) lines.push_back("+ " + path + ": " + value);
  }
  return lines;
}

Store::Store(uint16_t port) : port_(port), is_up_(Kvdb_Start(kHost, port) == 1) {}
Store::~Store() { Kvdb_Stop(); }

Store::Found Store::Read(const StoredDocument& document, std::string& text) const {
  int result = -1;
  const auto answers = [&] {
    result = Kvdb_GetKeyAbsolutely(document.key, document.key_length, KeepText, &text);
    is_up_ = is_up_ || result >= 0;
    return result >= 0 || !is_up_;
  };
  Patiently(answers);
  // Defaults are stored with their terminating NUL, which is no part of the document.
  while (!text.empty() && text.back() == '\0') text.pop_back();
  return result == 1 ? Found::kYes : result == 0 ? Found::kNo : Found::kUnreachable;
}

bool Store::Write(const StoredDocument& document, const std::string& text) const {
  return Patiently([&] {
    return Kvdb_SetKey(document.key, document.key_length, text.data(), static_cast<uint32_t>(text.size())) == 1;
  });
}

bool Store::Erase(const StoredDocument& document) const {
  return Patiently([&] { return Kvdb_DeleteKey(document.key, document.key_length) == 1; });
}

int Store::Explain() const {
  Note(std::string("no store at ") + kHost + ":" + std::to_string(port_) + ". Is it up (redis-server)?");
  return kNoAnswer;
}

Json::Value CurrentFieldList(uint16_t store_port) {
  const StoredDocument& document = businessserver::kRs485pro;
  const Store store(store_port);
  Json::Value list;
  std::string text;
  const Store::Found found = store.IsUp() ? store.Read(document, text) : Store::Found::kUnreachable;
  if (found == Store::Found::kUnreachable) Note("the store is out of reach: reading frames by the default field list");
  if (found == Store::Found::kYes && businessserver::ParseJson(text, list)) return list;
  businessserver::ParseJson(businessserver::DefaultDocument(document.default_index), list);
  return list;
}

}  // namespace parkctl
