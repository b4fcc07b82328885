#include "protocol/json_text.h"

#include <gtest/gtest.h>

namespace businessserver {
namespace {

TEST(JsonText, WritesWhatTheLibraryWrites) {
  for (const char* text :
       {"null", "{}", "[]", "7", "[1,[2,{\"a\":null}],[],[[]],{}]",
        "{\"b\":-1.5,\"a\":\"\\u4eac\\n\\\"\",\"c\":4294967295}",
        "{\"list\":[{\"z\":true,\"a\":false},\"\",-9223372036854775808],\"o\":{\"e\":{},\"n\":18446744073709551615}}",
        "{\"key \\\" quoted\":{\"a\":[\"back\\\\slash / slash\"]}}",
        "[\"\\u007f\",\"\\u0080\",\"\\u001f\",\"a\\u0000b\"]", "{\"a\":[1,/* inside */2]}",
        "// before\n{\"a\":1 /* after */,\n// inside\n\"b\":[1,2]} // end"}) {
    Json::Value document;
    ASSERT_TRUE(ParseJson(text, document)) << text;
    EXPECT_EQ(StyledText(document), document.toStyledString()) << text;
  }
}

TEST(JsonText, KeepsComments) {
  Json::Value document;
  ASSERT_TRUE(ParseJson("// before\n{\"a\":1}", document));
  EXPECT_EQ(StyledText(document), "\n// before\n{\n\t\"a\" : 1\n}\n");
}

std::string Repeated(const std::string& text, size_t count) {
  std::string all;
  while (count-- > 0) all += text;
  return all;
}

TEST(JsonText, TakesWhatStoredDocumentsRelyOnAndNoMoreThanTheDeviceKeeps) {
  const std::tuple<const char*, std::string, bool> kRows[] = {
      {"64 lists", Repeated("[", 64) + Repeated("]", 64), true},
      {"65 lists", Repeated("[", 65) + Repeated("]", 65), false},
      {"65 objects", Repeated("{\"a\":", 65) + "1" + Repeated("}", 65), false},
      {"65 after shallower ones", "[[1],[2]," + Repeated("[", 64) + Repeated("]", 64) + "]", false},
      {"brackets in a text", "[\"" + Repeated("[", 100) + "\\\"" + Repeated("{", 100) + "\"]", true},
      {"brackets in comments", "[/*" + Repeated("[", 100) + "*/ 1 //" + Repeated("{", 100) + "\n]", true},
      {"brackets in a comment of an old Mac", "//" + Repeated("[", 100) + "\r" + Repeated("[", 65), false},
      {"brackets after the document", "[1] " + Repeated("[", 100), true},
      {"a text that ends in a backslash", "[\"\\", false},
      {"an open comment", "[/*", false},
      {"many values", "[" + Repeated("0,", kMaxJsonValues - 2) + "0]", true},
      {"too many values", "[" + Repeated("0,", kMaxJsonValues) + "0]", false},
      {"too many lists", "[" + Repeated("[],", kMaxJsonValues / 2 + 1) + "0]", false},
      {"counted terminator", std::string("{\"a\":1}\0", 8), true},
      {"text after the document", "{\"a\":1} x", true},
      {"comment", "{\"a\":/* c */1}", true},
      {"trailing comma", "{\"a\":1,}", false},
      {"empty", "", false},
      {"nesting beyond the reader", std::string(100000, '['), false},
  };
  for (const auto& [name, text, accepted] : kRows) {
    Json::Value document(7);
    EXPECT_EQ(ParseJson(text, document), accepted) << name;
    if (text.substr(0, 5) == "{\"a\":" && text.size() < 20) {
      EXPECT_EQ(document["a"], 1) << name << ": what was read stays";
    }
  }
  Json::Value document(7);
  ParseJson("[1," + Repeated("[", 65), document);
  EXPECT_TRUE(document.isNull()) << "nothing of it is used";
}

}  // namespace
}  // namespace businessserver
