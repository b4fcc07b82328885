#include "contract_commands.h"

#include <iostream>
#include <vector>

#include "console.h"
#include "contract/explain.h"
#include "contract/schemas.h"
#include "json_words.h"
#include "plain_words.h"

namespace parkctl {

namespace {

std::string Found(const std::string& name) {
  std::string found = contract::Find(name);
  if (!found.empty()) return found;
  std::vector<std::string> last_parts;
  for (const std::string& whole : contract::Names()) last_parts.push_back(whole.substr(whole.find('/') + 1));
  const std::string nearest = contract::Nearest(name, last_parts);
  throw UserError("'" + words::Printable(name) + "' is no command, document or message" +
                  (nearest.empty() ? "; --help shows examples" : ", did you mean " + nearest + "?"));
}

}  // namespace

int PrintSchema(const std::string& name) {
  std::cout << words::IndentedText(contract::Printed(contract::Schema(Found(name)))) << "\n";
  return kDone;
}

int ExplainSchema(const std::string& name) {
  std::cout << contract::Explain(Found(name));
  return kDone;
}

}  // namespace parkctl
