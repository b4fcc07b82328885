// What the tools say of bytes on the external line: they account for each, and their words are fit for a terminal.
#include "plain_words.h"
#include "protocol/json_text.h"
#include "protocol/stored_documents.h"
#include "serial_decoder.h"
#include "target.h"

namespace bs = businessserver;

static Json::Value DefaultFields() {
  Json::Value fields;
  bs::ParseJson(bs::DefaultDocument(bs::kRs485pro.default_index), fields);
  return fields;
}

FUZZ_TARGET(input) {
  static const Json::Value fields = DefaultFields();
  const std::string bytes(input);
  const std::vector<uint8_t> copy(bytes.begin(), bytes.end());
  size_t described = 0;
  for (const auto& frame : words::DecodeBurst(copy.data(), copy.size(), fields)) {
    MUST_HOLD(frame.size >= 1 && !frame.Text().empty());
    described += frame.size;
  }
  MUST_HOLD(described == copy.size());
  std::string text;
  words::ParseHex(bytes, text);
  MUST_HOLD(words::ParseHex(words::HexText(copy.data(), copy.size()), text) && text == bytes);
  for (const char c : words::Printable(bytes + words::GbkToUtf8(bytes))) {
    MUST_HOLD(static_cast<uint8_t>(c) >= 0x20 && c != 0x7F);
  }
  words::Utf8ToGbk(bytes, text);
}
