// Writes what the contract's checker says about a great many documents, one JSON line each, for a second validator to
// agree with: every example of the page of messages, and of every schema a valid document with values at and beyond
// each edge in each of its places.
#include <iostream>
#include <string>
#include <vector>

#include "contract/check.h"
#include "contract/faults.h"
#include "contract/schemas.h"
#include "document_examples.h"
#include "json_words.h"

namespace {

void Write(const std::string& name, const Json::Value& document) {
  Json::Value line;
  line["schema"] = name;
  line["document"] = document;
  line["valid"] = contract::Check(name, document).empty();
  std::cout << words::CompactText(line) << "\n";
}

// A valid value, as far as one can be guessed.
Json::Value Sample(const Json::Value& schema) {
  for (const char* said : {"default", "const"}) {
    if (schema.isMember(said)) return schema[said];
  }
  if (schema.isMember("enum")) return schema["enum"][0];
  for (const char* alternatives : {"allOf", "anyOf", "oneOf"}) {
    if (schema[alternatives].isArray() && !schema.isMember("properties")) return Sample(schema[alternatives][0]);
  }
  Json::Value value;
  const std::string type = schema["type"].isArray() ? schema["type"][0].asString() : schema["type"].asString();
  if (type == "integer") return schema.get("minimum", 0);
  if (type == "boolean") return true;
  if (type == "array") {
    value = Json::Value(Json::arrayValue);
    if (schema.isMember("items")) value.append(Sample(schema["items"]));
  } else if (type == "string") {
    for (const char* text : {"A", "BB88", "AAAA", "mqtt://hub", "0a1b2c3d"}) {
      if (contract::FindFaults(schema, text).empty()) return text;
    }
  } else {
    value = Json::Value(Json::objectValue);
    const bool all = !schema.isMember("maxProperties");
    for (const std::string& member : contract::Members(schema)) {
      if (all || value.empty()) value[member] = Sample(schema["properties"][member]);
    }
    if (schema["additionalProperties"].isObject()) value["L2-B-014"] = Sample(schema["additionalProperties"]);
  }
  return value;
}

std::vector<Json::Value> Edges(const Json::Value& schema) {
  std::vector<Json::Value> values = {Json::Value(), true, 0, -1, 1.0, 1.5, 1e20, "", "0", Json::arrayValue};
  values.emplace_back(Json::objectValue);
  for (const char* limit : {"minimum", "maximum", "x-max-bytes", "maxLength"}) {
    if (!schema.isMember(limit)) continue;
    const Json::Int64 number = schema[limit].asInt64();
    for (const Json::Int64 value : {number - 1, number, number + 1}) {
      values.emplace_back(value);
      if (limit[0] == 'm' && limit[3] == 'i') continue;
      if (number < 5000) values.emplace_back(std::string(static_cast<size_t>(std::max<Json::Int64>(value, 0)), 'a'));
    }
  }
  for (const Json::Value& choice : schema["enum"]) {
    values.push_back(choice);
    if (!choice.isInt()) continue;
    values.emplace_back(choice.asInt() - 1);
    values.emplace_back(choice.asInt() + 1);
    values.emplace_back(std::to_string(choice.asInt()));
  }
  if (schema["type"] == "string" || schema.isMember("pattern")) {
    for (const char* text : {"a\n",
                             "\x7F",
                             "\xC2\x85",
                             "\xC2\xA0",
                             "京京京京京",
                             "京京京京京京",
                             "é",
                             "a b",
                             "L2/B",
                             "L2//B",
                             "00",
                             "BB88",
                             "BB8",
                             "bb00",
                             "A===",
                             "mqtts://hub:8883",
                             "mqtt://hub:65536",
                             "mqtt://",
                             "mqtts://[::1]:1",
                             "http://hub"}) {
      values.emplace_back(text);
    }
    values.emplace_back(std::string("a\0b", 3));
  }
  return values;
}

// Each place of the document with each of its edges.
void WriteEdges(const std::string& name, const Json::Value& schema, const Json::Value& whole, Json::Value& document,
                Json::Value& place) {
  const Json::Value kept = place;
  const auto write = [&](const Json::Value& value) {
    place = value;
    Write(name, document);
    place = kept;
  };
  for (const Json::Value& value : Edges(schema)) write(value);
  if (kept.isObject()) {
    Json::Value changed = kept;
    changed["somebody's"] = 1;
    write(changed);
    for (const std::string& member : kept.getMemberNames()) {
      changed = kept;
      changed.removeMember(member);
      write(changed);
      const Json::Value& own =
          schema["properties"].isMember(member) ? schema["properties"][member] : schema["additionalProperties"];
      if (own.isObject()) WriteEdges(name, own, whole, document, place[member]);
    }
  }
  if (!kept.isArray() || kept.empty()) return;
  for (const Json::ArrayIndex size : {1u, 8u, 9u, 20u, 21u}) {
    Json::Value changed(Json::arrayValue);
    while (changed.size() < size) changed.append(kept[0]);
    write(changed);
  }
  if (schema["items"].isMember("properties")) WriteEdges(name, schema["items"], whole, document, place[0]);
}

std::string SchemaOf(const DocumentExample& example, const Json::Value& document) {
  const std::string type = document["type"].isString() ? document["type"].asString() : "";
  for (const char* folder : {"requests/", "replies/", "messages/"}) {
    const bool fits = (*folder == 'm') || (folder[2] == 'q' ? example.kind == "request" || example.kind == "external"
                                                            : example.kind == "reply");
    if (fits && contract::Has(folder + type)) return folder + type;
  }
  return example.kind == "reply" ? "messages/not_understood" : "messages/net_push";
}

}  // namespace

int main() {
  for (const DocumentExample& example : DocumentExamples("messages.md")) {
    Json::Value document;
    if (!businessserver::ParseJson(example.text, document) || !document.isObject()) continue;
    Write(SchemaOf(example, document), document);
  }
  for (const std::string& name : contract::Names()) {
    const Json::Value& schema = contract::Schema(name);
    Json::Value document = Sample(schema);
    Write(name, document);
    WriteEdges(name, schema, document, document, document);
  }
  return 0;
}
