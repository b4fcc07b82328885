// The one file that is compiled with the validator: it costs seconds.
#include "contract/validate.h"

#include <map>
#include <memory>
#include <valijson/adapters/jsoncpp_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>

#include "contract/faults.h"

namespace contract {
namespace {

// The validator matches bytes.
Json::Value WithBytePatterns(Json::Value schema) {
  if (!schema.isObject() && !schema.isArray()) return schema;
  for (Json::Value& value : schema) value = WithBytePatterns(value);
  const char* const key = "pattern";
  const bool has_pattern = schema.isObject() && schema.isMember(key) && schema[key].isString();
  if (has_pattern) schema[key] = BytePattern(schema[key].asString());
  return schema;
}

const valijson::Schema& Compiled(const std::string& name, const Json::Value& schema) {
  static std::map<std::string, std::unique_ptr<valijson::Schema>> compiled;
  std::unique_ptr<valijson::Schema>& known = compiled[name];
  if (known == nullptr) {
    const Json::Value source = WithBytePatterns(schema);
    auto fresh = std::make_unique<valijson::Schema>();
    valijson::SchemaParser().populateSchema(valijson::adapters::JsonCppAdapter(source), *fresh);
    known = std::move(fresh);
  }
  return *known;
}

}  // namespace

bool IsValid(const std::string& name, const Json::Value& schema, const Json::Value& document, std::string& problem) {
  static valijson::Validator validator(valijson::Validator::kStrongTypes);
  valijson::ValidationResults results;
  if (validator.validate(Compiled(name, schema), valijson::adapters::JsonCppAdapter(document), &results)) return true;
  valijson::ValidationResults::Error error;
  if (results.popError(error)) {
    for (const std::string& part : error.context) problem += part;
    problem += ": " + error.description;
  }
  return false;
}

}  // namespace contract
