// A device's configuration as a file: what is accepted is the same after it was written and read again, and there is
// nothing to set on a device that holds it.
#include "config/config_file.h"
#include "target.h"

FUZZ_TARGET(input) {
  config::Configuration configuration;
  if (!config::ReadFile(input, configuration).empty()) return;
  const std::string text = config::FileText(configuration);
  config::Configuration again;
  MUST_HOLD(config::ReadFile(text, again).empty() && config::FileText(again) == text);
  MUST_HOLD(config::Difference(configuration, again).empty());
  for (const auto& [part, value] : configuration.documents) config::StoringRequest(*part, value);
}
