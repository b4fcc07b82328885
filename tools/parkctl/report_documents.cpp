// The parts of a report that parkctl itself knows: documents, with what is nobody else's masked.
#include <algorithm>
#include <iostream>
#include <string_view>

#include "config_device.h"
#include "console.h"
#include "kvdb_whole.h"
#include "masking.h"
#include "plain_words.h"
#include "protocol/json_text.h"
#include "protocol/site_names.h"
#include "report.h"
#include "stored_text.h"

namespace parkctl {

namespace bs = businessserver;

namespace {

std::string Size(const std::string& text) { return std::to_string(text.size()) + " bytes, not shown"; }

// Of a document that the device knows; the names of others are nobody's secret, their texts may be.
std::string ShownText(const std::string& key, const std::string& text) {
  const auto known = [&](const bs::StoredDocument* document) {
    return key == std::string(document->key, document->key_length);
  };
  if (std::none_of(std::begin(bs::kStoredDocuments), std::end(bs::kStoredDocuments), known)) return Size(text);
  Json::Value document;
  if (!bs::ParseJson(text, document)) return "no JSON, " + Size(text);
  return IndentedText(Masked(document));
}

void Print(const std::string& name, const std::string& text) {
  std::cout << words::Printable(name) << ":\n" << text << "\n\n";
}

int PrintStored(uint16_t store_port, KvdbPart part) {
  const Store store(store_port);
  KvdbDocuments documents;
  if (!store.IsUp() || Kvdb_ReadAll(part, &documents) != 1) return store.Explain();
  for (const auto& [key, text] : documents) {
    const std::string name = key.substr(0, key.find_last_not_of('\0') + 1);
    if (part == KvdbPart::kStore) {
      Print(name, ShownText(key, text));
      continue;
    }
    Json::Value document;
    std::string problem = "it is JSON, and was of no use";
    bs::ParseJson(text, document, &problem);
    Print(name, problem + "\n" + MaskedText(text));
  }
  if (documents.empty()) std::cout << "none\n";
  return kDone;
}

int PrintRead(const ReportOptions& options) {
  ConfigDevice device({options.device, options.store_port});
  int status = kDone;
  for (const config::Part& part : config::Parts()) {
    const std::optional<Json::Value> value = device.ReadDocument(part);
    if (value) {
      Print(part.name, IndentedText(Masked(*value)));
    } else {
      std::cout << part.name << ": not to be had\n\n" << std::flush;
      status = kNoAnswer;
    }
  }
  return status;
}

int PrintHealth(const DeviceOptions& options) {
  Hub hub(options.site);
  if (!hub.Connect()) return hub.Explain(Hub::Outcome::kNoBroker, "");
  const std::string site = hub.FindSite();
  if (site.empty()) return kNoAnswer;
  bool any = false;
  const auto show = [&](const bus::Message& message) {
    any = true;
    Json::Value document;
    Print(message.topic, bs::ParseJson(message.payload, document) ? IndentedText(Masked(document))
                                                                  : words::Printable(message.payload));
  };
  const std::string counts = "park/" + site + "/counts/" + options.device + "/#";
  if (!hub.Collect({bs::HealthTopic(site, options.device), bs::PlanTopic(site, options.device), counts}, show)) {
    return hub.Explain(Hub::Outcome::kNoBroker, "");
  }
  if (!any) Note("the hub keeps nothing of it, or does not show it to this account");
  return any ? kDone : kNoAnswer;
}

}  // namespace

int PrintReportPart(const std::string& part, const ReportOptions& options) {
  if (part == "health") return PrintHealth(options.device);
  if (part == "unreadable") return PrintStored(options.store_port, KvdbPart::kUnreadable);
  if (part != "documents") throw UserError("no part is called so");
  if (!options.device.device.empty()) return PrintRead(options);
  return PrintStored(options.store_port, KvdbPart::kStore);
}

}  // namespace parkctl
