#include "config/config_file.h"

#include <algorithm>

#include "contract/check.h"
#include "contract/json_text.h"
#include "contract/schemas.h"
#include "protocol/commands.h"
#include "protocol/json_text.h"

namespace config {

namespace bs = businessserver;

namespace {

constexpr char kVersion[] = "version";
constexpr char kDevice[] = "device";
constexpr char kDocuments[] = "documents";
constexpr char kBodyPlace[] = "body";

std::string ReadingCommandOf(const bs::StoredDocument* document) {
  if (document == &bs::kSysBlueTooth) return bs::kGetBt;  // asks the module, which its document only echoes
  for (const bs::Command& command : bs::kCommands) {
    if (command.effect == bs::CommandEffect::kReads && command.document == document) return std::string(command.name);
  }
  return "";
}

std::vector<Part> MakeParts() {
  std::vector<Part> parts;
  for (const bs::Command& command : bs::kCommands) {
    if (command.effect != bs::CommandEffect::kStores) continue;
    parts.push_back({command.document->key, std::string(command.name), ReadingCommandOf(command.document)});
  }
  // A line with wrong settings is silent: its settings come after everything that can still be told.
  std::stable_partition(parts.begin(), parts.end(),
                        [](const Part& part) { return part.storing_command != bs::kSetTtyioCfg; });
  parts.push_back({kRelayDocument, "set_relay_cfg", "get_relay_cfg"});
  return parts;
}

std::string SchemaOf(const Part& part) {
  return (part.name == kRelayDocument ? "site/" : "requests/") + part.storing_command;
}

// A fault of the request that would carry the document, as one of the document.
std::string DocumentFault(const Part& part, contract::Fault fault) {
  const std::string_view body = kBodyPlace;
  if (fault.place.compare(0, body.size(), body) == 0) fault.place.erase(0, body.size());
  fault.place.insert(0, part.name);
  return fault.Text();
}

void ReadDocuments(const Json::Value& documents, Configuration& configuration, std::vector<std::string>& faults) {
  for (const std::string& name : documents.getMemberNames()) {
    if (FindPart(name) != nullptr) continue;
    std::vector<std::string> known;
    for (const Part& part : Parts()) known.push_back(part.name);
    const std::string nearest = contract::Nearest(name, known);
    faults.push_back(std::string(kDocuments) + "." + name + ": is no document of a configuration" +
                     (nearest.empty() ? "" : ", is " + nearest + " meant?"));
  }
  for (const Part& part : Parts()) {
    if (!documents.isMember(part.name)) continue;
    const Json::Value& value = documents[part.name];
    std::vector<contract::Fault> wrong = contract::Check(SchemaOf(part), StoringRequest(part, value));
    if (wrong.empty()) {
      // A command may name a part of what it sets; a file says what the device is to hold.
      wrong = contract::Check("documents/" + part.name, value);
      for (contract::Fault& fault : wrong) fault.place.insert(0, std::string(kBodyPlace) + ".");
    }
    for (const contract::Fault& fault : wrong) faults.push_back(DocumentFault(part, fault));
    configuration.documents.push_back({&part, value});
  }
}

}  // namespace

const std::vector<Part>& Parts() {
  static const std::vector<Part> parts = MakeParts();
  return parts;
}

const Part* FindPart(std::string_view name) {
  for (const Part& part : Parts()) {
    if (part.name == name) return &part;
  }
  return nullptr;
}

Json::Value StoringRequest(const Part& part, const Json::Value& value) {
  Json::Value request;
  request[bs::kType] = part.storing_command;
  request[bs::kBody] = value;
  return request;
}

std::vector<std::string> ReadFile(std::string_view text, Configuration& configuration) {
  Json::Value file;
  std::string problem;
  if (!contract::ParseStrictly(text, contract::Comments::kRefused, file, problem)) return {"the file " + problem};
  if (!file.isObject()) return {"the file is no JSON object"};
  std::vector<std::string> faults;
  const Json::Value& version = file[kVersion];
  if (!version.isInt() || version.asInt() < 1) {
    return {"version: is missing or no whole number: this is no configuration file"};
  }
  if (version.asInt() > kFileVersion) {
    return {"version: " + std::to_string(version.asInt()) + " is newer than this parkctl, which reads up to " +
            std::to_string(kFileVersion)};
  }
  for (const std::string& name : file.getMemberNames()) {
    if (name != kVersion && name != kDevice && name != kDocuments) {
      faults.push_back(name + ": is no member of a configuration file");
    }
  }
  if (file.isMember(kDevice)) {
    if (file[kDevice].isString()) {
      configuration.device = file[kDevice].asString();
    } else {
      faults.push_back("device: is no text");
    }
  }
  if (file[kDocuments].isObject()) {
    ReadDocuments(file[kDocuments], configuration, faults);
  } else {
    faults.push_back("documents: is missing or no JSON object");
  }
  return faults;
}

std::string FileText(const Configuration& configuration) {
  Json::Value file;
  file[kVersion] = kFileVersion;
  if (!configuration.device.empty()) file[kDevice] = configuration.device;
  file[kDocuments] = Json::Value(Json::objectValue);
  for (const Document& document : configuration.documents) file[kDocuments][document.part->name] = document.value;
  return bs::StyledText(file);
}

std::string DeviceNameIn(const Configuration& configuration) {
  for (const Document& document : configuration.documents) {
    if (document.part->name != kRelayDocument || !document.value.isObject()) continue;
    const Json::Value& name = document.value[kDevice];
    return name.isString() ? name.asString() : "";
  }
  return "";
}

std::vector<Change> Difference(const Configuration& held, const Configuration& wanted) {
  std::vector<Change> changes;
  for (const Document& document : wanted.documents) {
    const auto same_part = [&](const Document& other) { return other.part == document.part; };
    const auto before = std::find_if(held.documents.begin(), held.documents.end(), same_part);
    const Json::Value value = before == held.documents.end() ? Json::Value() : before->value;
    if (value != document.value) changes.push_back({document.part, value, document.value});
  }
  return changes;
}

}  // namespace config
