#include "rs485pro/plate_code.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <string>
#include <vector>

#include "hex_bytes.h"

namespace businessserver {
namespace {

// What people read in the table is what the line carries: each text, converted, gives its two bytes.
TEST(PlateCode, TextsMatchTheirGbkBytes) {
  iconv_t converter = iconv_open("GBK", "UTF-8");
  if (converter == reinterpret_cast<iconv_t>(-1)) GTEST_SKIP() << "no GBK converter on this machine";
  std::string all;
  for (uint8_t code = 0; code < kPlateCharacterCount; ++code) {
    const PlateCharacter& character = *PlateCharacterOf(code);
    std::string text = character.text;
    uint8_t gbk[2] = {};
    char* in = text.data();
    char* out = reinterpret_cast<char*>(gbk);
    size_t in_left = text.size(), out_left = sizeof gbk;
    iconv(converter, &in, &in_left, &out, &out_left);
    EXPECT_EQ(GbkCharacter(gbk[0], gbk[1]), character.gbk) << text;
    EXPECT_EQ(iGetCharatorCode(GbkCharacter(gbk[0], gbk[1])), code) << text;
    all += character.text;
  }
  iconv_close(converter);
  EXPECT_EQ(all, "京津冀晋蒙辽吉黑沪苏浙皖闽赣鲁豫鄂湘粤桂琼渝川贵云藏陕甘青宁新港澳台警使WJ领学民航");
  EXPECT_EQ(iGetCharatorCode(0xA9BE), kUnknownCharacter) << "bytes swapped";
  EXPECT_EQ(PlateCharacterOf(kPlateCharacterCount), nullptr);
}

#define JING "\xBE\xA9"
#define YUE "\xD4\xC1"
#define OTHER "\xB0\xA1"

TEST(PlateCode, FieldBytes) {
  // clang-format off
  const struct { const char* name; std::string plate; bool long_plate; const char* bytes; } kRows[] = {
      {"ordinary",                  JING "A12345",           false, "00 41 31 32 33 34 35"},
      {"no plate",                  "\x5F\xCE\xDE\x5F" "AB", true,  "00 00 00 00 00 00 00"},
      {"empty",                     "",                      true,  "00 00 00 00 00 00 00"},
      {"unknown province",          OTHER "A12345",          false, "FF 41 31 32 33 34 35"},
      {"long",                      YUE "AD12345",           true,  "92 41 44 31 32 33 34 35"},
      {"long type, short text",     YUE "A",                 true,  "92 41 00 00 00 00 00 00"},
      {"long, unknown province",    OTHER "AD12345",         true,  "7F 41 44 31 32 33 34 35"},
      {"long type, plain first",    "AAD12345",              true,  "41 41 44 31 32 33 34"},
      {"character at the end",      YUE "A1234\xB8\xDB",     false, "12 41 31 32 33 34 1F"},
      {"police with province",      "WJ\xB4\xA8" "12345",    true,  "24 16 31 32 33 34 35"},
      {"police, unknown province",  "WJ" OTHER "12345",      false, "24 FF 31 32 33 34 35"},
      {"police, digits only",       "WJ01234",               false, "57 4A 30 31 32 33 34"},
      {"z is half a character",     "yz1A",                  false, "79 FF 41 00 00 00 00"},
      {"z first is still plain",    "z1A",                   true,  "FF 41 00 00 00 00 00"},
      {"{ first is a character",    "{1A",                   true,  "7F 41 00 00 00 00 00 00"},
      {"half a character last",     JING "A\xD4",            false, "00 41 FF 00 00 00 00"},
      {"half a character alone",    "\xBE",                  false, "FF 00 00 00 00 00 00"},
      {"halves all through",        std::string(16, '\xFF'), true,  "7F FF FF FF FF FF FF FF"},
  };
  // clang-format on
  for (const auto& row : kRows) {
    const std::vector<char> exact(row.plate.begin(), row.plate.end());  // a sanitizer sees a read past its end
    uint8_t bytes[kPlateFieldMax];
    ByteWriter field(bytes);
    EncodePlateField(std::string_view(exact.data(), exact.size()), row.long_plate, field);
    EXPECT_EQ(HexBytes(bytes, field.size()), row.bytes) << row.name;
  }
}

}  // namespace
}  // namespace businessserver
