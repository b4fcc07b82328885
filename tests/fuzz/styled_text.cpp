// Any document is written as the library would write it, whichever way is taken.
#include "protocol/json_text.h"
#include "target.h"

FUZZ_TARGET(input) {
  Json::Value document;
  if (!businessserver::ParseJson(input, document)) return;
  MUST_HOLD(businessserver::StyledText(document) == document.toStyledString());
}
