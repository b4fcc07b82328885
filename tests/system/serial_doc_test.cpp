// The worked examples of docs/serial.md, line by line through the decoder.
#include <gtest/gtest.h>

#include "../document_examples.h"
#include "plain_words.h"
#include "protocol/json_text.h"
#include "serial_decoder.h"

namespace {

// Everything that a line of bytes says: a beacon line's meaning, or that of its frames.
std::string WordsOf(const std::string& line, const Json::Value& field_list) {
  std::string bytes;
  if (!words::ParseHex(line, bytes)) return words::DescribeBeaconLine(line + "\r\n");
  std::string words;
  const auto* begin = reinterpret_cast<const uint8_t*>(bytes.data());
  for (const auto& frame : words::DecodeBurst(begin, bytes.size(), field_list)) {
    words += (words.empty() ? "" : "; ") + frame.Text();
  }
  return words;
}

TEST(SerialPage, BytesSayWhatThePageSays) {
  Json::Value field_list;
  std::string said;
  int compared = 0;
  for (const DocumentExample& example : DocumentExamples("serial.md")) {
    if (example.kind == "fields") {
      ASSERT_TRUE(businessserver::ParseJson(example.text, field_list)) << example.place;
    } else if (example.kind == "bytes") {
      std::istringstream lines(example.text);
      for (std::string line; std::getline(lines, line);) {
        said += (said.empty() ? "" : "\n") + WordsOf(line, field_list);
      }
    } else if (example.kind == "says") {
      EXPECT_EQ(example.text, said) << example.place;
      said.clear();
      ++compared;
    }
  }
  EXPECT_GE(compared, 8);
  EXPECT_EQ(said, "") << "bytes at the page's end that it says nothing about";
}

}  // namespace
