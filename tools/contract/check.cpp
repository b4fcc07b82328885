#include "contract/check.h"

#include "contract/faults.h"
#include "contract/schemas.h"
#include "contract/validate.h"

namespace contract {
namespace {

bool HasLongText(const Json::Value& document) {
  if (document.isString()) return document.asString().size() > kMatchedBytes;
  if (!document.isObject() && !document.isArray()) return false;
  for (auto member = document.begin(); member != document.end(); ++member) {
    if (HasLongText(*member) || (document.isObject() && member.name().size() > kMatchedBytes)) return true;
  }
  return false;
}

}  // namespace

// The validator decides; the words are ours. Where they find nothing to say, the validator's own stand.
std::vector<Fault> Check(const std::string& name, const Json::Value& document) {
  const Json::Value& schema = Schema(name);
  const std::vector<Finding> findings = FindFaults(schema, document);
  std::string problem;
  const bool valid = HasLongText(document) ? findings.empty() : IsValid(name, schema, document, problem);
  std::vector<Fault> faults;
  for (const Finding& finding : findings) {
    if (!valid || finding.only_ours) faults.push_back(finding.fault);
  }
  if (!valid && faults.empty()) faults.push_back({"", problem});
  return faults;
}

}  // namespace contract
