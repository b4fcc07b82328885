#include "decode_command.h"

#include <iostream>

#include "console.h"
#include "plain_words.h"
#include "protocol/names.h"
#include "serial_decoder.h"
#include "stored_text.h"

namespace parkctl {

namespace {

Json::Value FieldList(const DecodeOptions& options) {
  if (options.fields.empty()) return CurrentFieldList(options.store_port);
  const std::string source = options.fields == "-" ? "-" : "@" + options.fields;
  Json::Value document = ParseUserJson(ReadSource(source), "the field list");
  if (!document.isArray()) return document;
  Json::Value whole;  // the bare list serves as well
  whole[businessserver::kProCfg] = document;
  return whole;
}

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + ReadSource(word);
  return text;
}

void ShowField(const words::DecodedField& field, const uint8_t* frame) {
  char line[96];
  snprintf(line, sizeof line, "  %3zu  %-26s %-13s", field.offset,
           words::HexText(frame + field.offset, field.size).c_str(), field.name.c_str());
  std::cout << Painted(Paint::kFaint, line) << field.value << "\n";
}

// Lines of the beacon link, one below the other. False when the text is none.
bool ShowBeaconLines(const std::string& text) {
  const std::string words = words::DescribeBeaconLine(text);
  if (words.empty()) return false;
  std::cout << "beacon: " << words << "\n";
  return true;
}

}  // namespace

int Decode(const DecodeOptions& options) {
  const std::string text = Joined(options.words);
  if (ShowBeaconLines(text)) return kDone;
  std::string bytes;
  if (!words::ParseHex(text, bytes)) {
    throw UserError("these are no hexadecimal bytes: write them like AA 01 17 or AA0117");
  }
  if (bytes.empty()) throw UserError("there is nothing to decode");
  if (ShowBeaconLines(bytes)) return kDone;

  int status = kDone;
  const auto* at = reinterpret_cast<const uint8_t*>(bytes.data());
  for (const words::DecodedFrame& frame : words::DecodeBurst(at, bytes.size(), FieldList(options))) {
    const bool known = frame.kind != words::FrameKind::kUnknown;
    if (!known) status = kRefused;
    std::cout << words::HexText(at, frame.size) << "\n";
    std::cout << Painted(known ? Paint::kStrong : Paint::kBad, frame.Text()) << "\n";
    for (const words::DecodedField& field : frame.fields) ShowField(field, at);
    at += frame.size;
  }
  return status;
}

}  // namespace parkctl
