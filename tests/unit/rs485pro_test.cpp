#include "rs485pro/rs485pro.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <cstring>
#include <vector>

#include "fake_platform/fake_platform.h"
#include "hex_bytes.h"
#include "protocol/stored_documents.h"
#include "rs485pro/fixed_frames.h"
#include "rs485pro/plate_code.h"

namespace businessserver {
namespace {

// 京A12345 on an occupied space "A01".
LX_ParkingResult Result() {
  LX_ParkingResult r = {};
  strcpy(r.plate, "\276\251A12345");
  r.plate_color = 1, r.plate_confidence = 87, r.plate_type = 5, r.vehicle_color = 7, r.vehicle_color_class = 4;
  r.time_stamp = 0x01020304, r.head_confidence = 99, r.occupy_line = 0x10A, r.space_status = 1, r.trigger = 2;
  strcpy(r.space_name, "A01");
  return r;
}

std::string Frame(Rs485ProBuild& builder, const LX_ParkingResult& result) {
  unsigned length = 0;
  const uint8_t* frame = builder.GetDevRs485ProData(length, 7, 0x0A09, &result);
  return HexBytes(frame, length);
}

std::string Cfg(const std::string& entries) { return "{\"pro_cfg\":[" + entries + "]}"; }

std::string Times(int count, const std::string& text) { return count == 0 ? "" : text + Times(count - 1, text); }

// What the rows below change in the result.
using R = LX_ParkingResult;
void Same(R&) {}
void NoPlate(R& r) { strcpy(r.plate, kNoPlate); }
void LongPlate(R& r) { strcpy(r.plate, "\324\301AD12345"), r.plate_type = kLongPlateType; }
void LongTypeOnly(R& r) { strcpy(r.plate, "ABCDEFGHIJ"), r.plate_type = kLongPlateType; }
void NoName(R& r) { r.space_name[0] = 0; }
void ForeignName(R& r) { r.space_name[2] = '\x80'; }
void FullFields(R& r) {  // without terminators
  for (size_t i = 0; i < sizeof r.plate; ++i) r.plate[i] = "\324\301"[i % 2];
  memset(r.space_name, 'N', sizeof r.space_name), r.extra_text[0] = 'x', r.plate_type = kLongPlateType;
}
void AboveLimits(R& r) {
  r.plate_color = 6, r.plate_confidence = 101, r.plate_type = 20, r.trigger = 9, r.vehicle_color_class = 5;
  r.space_status = 4, r.head_confidence = 1000, strcpy(r.plate, "_");
}
void Negative(R& r) {
  r.plate_color = -1, r.plate_confidence = -2, r.plate_type = -3, r.trigger = -4, r.vehicle_color = -5;
  r.space_status = -6, r.head_confidence = -7;
}

TEST(Rs485Frame, Bytes) {
  const std::string codes = Cfg(R"({"enable":1},{"licensecolor":1},{"licenseconf":1},{"licensetype":1},{"trigger":1},)"
                                R"({"carcolor":1},{"framestatus":9},{"occupyline":1},{"headconf":true})");
  const std::string checked = Cfg(R"({"checkbegin":0},{"checkend":9},{"header":"10"},{"license":1},{"checksum":1})");
  const auto fixed = [](const std::string& rest) { return Cfg(R"({"header":"BB8812"},)" + rest); };
  // clang-format off
  const struct { const char* name; std::string cfg; void (*change)(R&); std::string bytes; } kRows[] = {
      {"default, no plate",     std::string(DefaultDocument(kRs485pro.default_index)), NoPlate,
                                "BB 88 BB 00 00 00 00 00 00 00 01 07 00 00 00 09 0A 00 00 03 41 30 31 33"},
      {"one-byte fields",       codes, Same,        "AA 00 57 05 02 07 01 0A 63"},
      {"above their limits",    codes, AboveLimits, "BB 04 64 00 00 01 00 0A 64"},
      {"below zero",            codes, Negative,    "AA 04 FE FD FC 01 FA 0A F9"},
      {"numbers",               Cfg(R"({"time":1},{"freenum":1},{"framenum":1})"), Same, "04 03 02 01 07 00 00 00 09 0A 00 00"},
      {"order, twice, off",     Cfg(R"({"end":"33"},{"enable":1},{"enable":0},{"enable":2})"), Same, "33 AA AA"},
      {"header up to its 00",   Cfg(R"({"header":"BB880011"})"), Same, "BB 88"},
      {"odd, no digit",         Cfg(R"({"header":"xBC"})"), Same, "0B 0C"},
      {"32 digits at most",     Cfg(R"({"header":"0102030405060708090a0b0c0d0e0f10FFFF"})"), Same,
                                "01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10"},
      {"first key of an entry", Cfg(R"({"header":"22","enable":1})"), Same, "AA"},
      {"plate of type 19",      Cfg(R"({"license":1},{"end":"33"})"), LongPlate, "92 41 44 31 32 33 34 35 33"},
      {"full plate of type 19", Cfg(R"({"license":1},{"end":"33"})"), FullFields, "92 12 12 12 12 12 12 12 33"},
      {"20 full names",         Cfg(Times(19, R"({"framename":1},)") + R"({"framename":1})"), FullFields,
                                Times(19, "20" + Times(32, " 4E") + " ") + "20" + Times(32, " 4E")},
      {"foreign name",          Cfg(R"({"framename":1},{"end":"33"})"), ForeignName, "33"},
      {"no name",               Cfg(R"({"framename":1},{"end":"33"})"), NoName, "00 33"},
      {"encode",                Cfg(R"({"encode":5},{"enable":1})"), Same, "AA"},
      {"XOR",                   fixed(R"({"checkbegin":0},{"checkend":3},{"checksum":0})"), Same, "BB 88 12 33"},
      {"sum",                   fixed(R"({"checkbegin":1},{"checkend":4},{"checksum":1})"), Same, "BB 88 12 9A"},
      {"check end 0",           fixed(R"({"checkbegin":0},{"checkend":0},{"checksum":0})"), Same, "BB 88 12"},
      {"check end too far",     fixed(R"({"checkbegin":0},{"checkend":5},{"checksum":0})"), Same, "BB 88 12"},
      {"check of nothing",      fixed(R"({"checkbegin":1},{"checkend":2},{"checksum":0})"), Same, "BB 88 12"},
      {"check, plate of 7",     checked, Same,         "10 00 41 31 32 33 34 35 50"},
      {"check, plate of 8",     checked, LongPlate,    "10 92 41 44 31 32 33 34 35 26"},
      {"check, type 19 of 7",   checked, LongTypeOnly, "10 41 42 43 44 45 46 47 EC"},
      {"check before the plate", Cfg(R"({"checkbegin":0},{"checkend":3},{"header":"1020"},{"license":1},{"checksum":1})"),
                                LongPlate, "10 20 92 41 44 31 32 33 34 35 30"},
      {"check behind the plate", Cfg(R"({"license":1},{"header":"1020"},{"checkbegin":8},{"checkend":10},{"checksum":1})"),
                                LongPlate, "92 41 44 31 32 33 34 35 10 20 10"},
  };
  // clang-format on
  for (const auto& row : kRows) {
    Rs485ProBuild builder;
    LX_ParkingResult result = Result();
    row.change(result);
    ASSERT_TRUE(builder.SetRs485Str(row.cfg)) << row.name;
    EXPECT_EQ(Frame(builder, result), row.bytes) << row.name;
  }
}

TEST(Rs485Frame, PlateColors) {
  Rs485ProBuild builder;
  ASSERT_TRUE(builder.SetRs485Str(Cfg(R"({"licensecolor":1})")));
  std::string sent;
  LX_ParkingResult result = Result();
  for (result.plate_color = 0; result.plate_color < 7; ++result.plate_color) sent += Frame(builder, result) + " ";
  EXPECT_EQ(sent, "04 00 01 03 02 04 04 ");
}

TEST(Rs485Cfg, Refused) {
  ResetFake();
  const char* const kUnchanged = "AA 33";  // what the configuration before builds
  const std::pair<std::string, const char*> kRows[] = {
      {"no json", kUnchanged},
      {Cfg(Times(20, R"({"enable":1},)") + R"({"enable":1})"), kUnchanged},
      {"null", kUnchanged},
      {"[]", kUnchanged},
      {R"({"pro_cfg":"header"})", kUnchanged},
      {R"({"pro_cfg":{"0":{"enable":1}}})", kUnchanged},
      {Cfg("{}"), ""},
      {Cfg("null"), ""},
      {Cfg("[1]"), ""},
      {Cfg(R"({"enable":"on"})"), ""},
      {Cfg(R"({"header":["BB"]})"), ""},
      {Cfg(R"({"checkend":-1},{"enable":1})"), ""},
      {Cfg(R"({"enable":1},{"Enable":1},{"end":"33"})"), "AA"},  // what stands before the unknown name stays
  };
  for (const auto& [cfg, frame_after] : kRows) {
    Rs485ProBuild builder;
    ASSERT_TRUE(builder.SetRs485Str(Cfg(R"({"enable":1},{"end":"33"})")));
    EXPECT_FALSE(builder.SetRs485Str(cfg)) << cfg;
    EXPECT_EQ(Frame(builder, Result()), frame_after) << cfg;
  }
  EXPECT_TRUE(Fake().Logged(3, "No Such Rs485Cfg Name"));
}

TEST(Rs485Cfg, NamesCompareAsTexts) {
  const char *const a = "a", *const b = "b", *const none = nullptr;
  EXPECT_EQ(Rs485ProBuild::CompareName(&a, &a), 0);
  EXPECT_LT(Rs485ProBuild::CompareName(&a, &b), 0);
  EXPECT_GT(Rs485ProBuild::CompareName(&b, &a), 0);
  for (const char* const* missing : {&none, static_cast<const char* const*>(nullptr)}) {
    EXPECT_EQ(Rs485ProBuild::CompareName(missing, &a), -1);
    EXPECT_EQ(Rs485ProBuild::CompareName(&a, missing), -1);
  }
}

TEST(Rs485Cfg, SettingsOutliveTheListThatNamedThem) {
  Rs485ProBuild builder;
  ASSERT_TRUE(builder.SetRs485Str(Cfg(R"({"checkbegin":0},{"checkend":3},{"header":"BB88"})")));
  ASSERT_TRUE(builder.SetRs485Str(Cfg(R"({"header":"1122"},{"checksum":0})")));
  EXPECT_EQ(Frame(builder, Result()), "11 22 33");
}

TEST(Rs485Cfg, NewListForgetsThePlateOfTheLast) {
  Rs485ProBuild builder;
  LX_ParkingResult result = Result();
  LongPlate(result);
  ASSERT_TRUE(builder.SetRs485Str(Cfg(R"({"checkbegin":0},{"checkend":3},{"license":1})")));
  Frame(builder, result);
  ASSERT_TRUE(builder.SetRs485Str(Cfg(R"({"header":"112244"},{"checksum":0})")));
  EXPECT_EQ(Frame(builder, result), "11 22 44 33") << "no byte more for a plate that is not there";
}

TEST(FixedFrames, DisplayBytes) {
  // clang-format off
  const struct { uint32_t value, address; const char* bytes; } kRows[] = {
      {0,          1,      "AA 01 17 01 30 8E"},
      {10,         255,    "AA FF 17 02 31 30 42"},
      {123,        2,      "AA 02 17 03 31 32 33 8F"},
      {7,          0x1203, "AA 03 17 01 37 8B"},  // low byte of the address
      {2147483647, 1,      "AA 01 17 0A 32 31 34 37 34 38 33 36 34 37 BF"},
      {0xFFFFFFFF, 1,      "AA 01 17 01 35 8B"},  // counted as a number below zero: one digit
  };
  // clang-format on
  Rs485ProBuild builder;
  for (const auto& row : kRows) {
    unsigned length = 0;
    const uint8_t* frame = builder.GetYBRs485ProData(length, row.value, row.address);
    EXPECT_EQ(HexBytes(frame, length), row.bytes) << row.value;
  }
  EXPECT_EQ(Rs485ProBuild::YbCheckXor(nullptr, -1), 3);
}

TEST(FixedFrames, RelayBytes) {
  uint8_t bytes[2 * kRelayFrameSize];
  ByteWriter frames(bytes);
  EncodeRelayFrame(5, true, frames);
  EncodeRelayFrame(0x105, false, frames);
  EXPECT_EQ(HexBytes(bytes, frames.size()), "AA 04 05 01 AA 55 AA 04 05 02 A9 55");
}

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
      {"police, z is no province",  "WJz2345",               false, "57 4A FF 33 34 35 00"},
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
