#include "serial_decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "devicesdk/beacon_text.h"
#include "devicesdk/led_control.h"
#include "fake_platform/fake_platform.h"
#include "plain_words.h"
#include "protocol/json_text.h"
#include "protocol/stored_documents.h"
#include "rs485pro/fixed_frames.h"
#include "rs485pro/rs485pro.h"

namespace {

namespace bs = businessserver;

using bs::LX_ParkingResult;
using words::DecodedFrame;
using words::FrameKind;

Json::Value FieldList(const std::string& entries) {
  Json::Value list;
  EXPECT_TRUE(bs::ParseJson("{\"pro_cfg\":[" + entries + "]}", list)) << entries;
  return list;
}

Json::Value DefaultList() {
  Json::Value list;
  EXPECT_TRUE(bs::ParseJson(bs::DefaultDocument(bs::kRs485pro.default_index), list));
  return list;
}

const uint8_t* Bytes(const std::string& text) { return reinterpret_cast<const uint8_t*>(text.data()); }

std::string Unhex(const std::string& hex) {
  std::string bytes;
  EXPECT_TRUE(words::ParseHex(hex, bytes)) << hex;
  return bytes;
}

std::string BurstText(const std::string& bytes, const Json::Value& list) {
  std::string text;
  for (const DecodedFrame& frame : words::DecodeBurst(Bytes(bytes), bytes.size(), list)) {
    text += (text.empty() ? "" : " | ") + frame.Text();
  }
  return text;
}

void SetPlate(LX_ParkingResult& result, const std::string& utf8) {
  std::string gbk;
  ASSERT_TRUE(words::Utf8ToGbk(utf8, gbk));
  memset(result.plate, 0, sizeof result.plate);
  gbk.copy(result.plate, sizeof result.plate);
}

TEST(SerialDecoder, GoldenLines) {
  const std::string fields = R"({"header":"A55A"},{"license":1},{"framestatus":1},{"framename":1})";
  // An empty list stands for the device's default.
  const std::tuple<const char*, std::string, std::string, const char*> kRows[] = {
      {"default frame", "", "BB88 AA 00413132333435 01 02000000 03000000 02 5031 33",
       "frame enable=plate license=京A12345 framestatus=occupied freenum=2 framenum=3 framename=P1"},
      {"an empty list fits nothing", " ", "01 02", "not decoded: the field list describes an empty frame"},
      {"no plate, empty name", "", "BB88 BB 00000000000000 00 03000000 03000000 00 33",
       "frame enable=no-plate license=none framestatus=free freenum=3 framenum=3 framename=\"\""},
      {"name left out", "", "BB88 AA 00413132333435 01 02000000 03000000 33",
       "frame enable=plate license=京A12345 framestatus=occupied freenum=2 framenum=3 "
       "framename=\"(left out, not ASCII)\""},
      {"long plate", "", "BB88 AA 9241443132333435 01 02000000 03000000 00 33",
       "frame enable=plate license=粤AD12345 framestatus=occupied freenum=2 framenum=3 framename=\"\""},
      {"police, unknown province, character at the end", fields,
       "A55A 240B3132333435 00 00  A55A FF413132333426 01 00  A55A 7F4141313233343 501 00",
       "frame license=WJ皖12345 framestatus=free framename=\"\" | frame license=?A1234学 framestatus=occupied "
       "framename=\"\" | frame license=?AA12345 framestatus=occupied framename=\"\""},
      {"police without province", fields, "A55A 24413132333435 00 00",
       "frame license=WJA12345 framestatus=free framename=\"\""},
      {"displays and relays in one burst", "", "AA0117 01 308E AA021703 3132338F AA040501AA55 AA040502A955",
       "display 1 shows 0 | display 2 shows 123 | relay 5 is told occupied | relay 5 is told free"},
      {"noise between frames", "", "00 FF AA0117 01 308E 13",
       "not decoded: at offset 0: header is 00 FF, the field list says BB 88 | display 1 shows 0 | not decoded: at "
       "offset 0: header is 13, the field list says BB 88"},
      {"wrong check byte, then a good frame", "", "AA0117 01 318E AA040501AA55",
       "not decoded: display frame: check byte is 8E, the frame's bytes give 8F | relay 5 is told occupied"},
      {"relay with the wrong tail", "", "AA040501AA54", "not decoded: relay frame: it ends in 54, not 55"},
      {"cut short", "", "BB88 AA 0041", "not decoded: at offset 3: license is cut short, 2 of 7 bytes"},
      {"sum over bytes 0 and 1", R"({"header":"0102"},{"checkbegin":0},{"checkend":3},{"checksum":1})", "0102 03",
       "frame check=03"},
      {"wrong sum", R"({"header":"0102"},{"checkbegin":0},{"checkend":3},{"checksum":1})", "0102 04",
       "not decoded: check byte is 04, the frame's bytes give 03"},
      {"unknown field in the list", R"({"plate":1})", "01", "not decoded: the field list has an unknown field 'plate'"},
      {"refused value", R"({"enable":"on"})", "AA",
       "not decoded: the field list is not of the right form: Value is not convertible to UInt."},
  };
  for (const auto& [name, list, spaced, text] : kRows) {
    std::string hex = spaced;
    hex.erase(std::remove(hex.begin(), hex.end(), ' '), hex.end());
    EXPECT_EQ(BurstText(Unhex(hex), list.empty() ? DefaultList() : FieldList(list)), text) << name;
  }
}

// ---- round trip: what the device builds is read back as what went in ----

std::mt19937 dice(20);
uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(dice() % limit); }

// Header and trailer, the fields in some order, and a check byte after them.
std::string AnyList() {
  std::vector<std::string> fields = {R"({"license":1})", R"({"framename":1})", R"({"time":1})", R"({"freenum":1})"};
  for (const char* name :
       {"enable", "licensecolor", "licenseconf", "licensetype", "trigger", "carcolor", "framestatus", "headconf"}) {
    fields.push_back(std::string("{\"") + name + "\":" + std::to_string(Below(2)) + "}");
  }
  std::shuffle(fields.begin(), fields.end(), dice);
  std::string list = R"({"header":"C3D27E"})";
  for (const std::string& field : fields) list += "," + field;
  list += ",{\"checkbegin\":" + std::to_string(Below(10)) + "},{\"checkend\":" + std::to_string(4 + Below(18));
  return list + "},{\"checksum\":" + std::to_string(Below(2)) + R"(},{"end":"E7F19C"})";
}

std::string ValueOf(const DecodedFrame& frame, const std::string& name) {
  for (const words::DecodedField& field : frame.fields) {
    if (field.name == name) return field.value;
  }
  return "";
}

TEST(SerialDecoder, ReadsBackWhatTheDeviceBuilds) {
  // What is left of a plate after the line's seven bytes, or the eight of the long type, and 41 characters.
  const std::tuple<const char*, const char*, const char*> kPlates[] = {{"京A12345", "京A12345", "京A12345"},
                                                                       {"粤BD12345", "粤BD1234", "粤BD12345"},
                                                                       {"領A12345", "?A12345", "?A12345"},
                                                                       {"WJ皖12345", "WJ皖12345", "WJ皖12345"},
                                                                       {"沪A1234学", "沪A1234学", "沪A1234学"},
                                                                       {"_无_", "none", "none"},
                                                                       {"A1", "A1", "A1"}};
  const std::pair<const char*, const char*> kNames[] = {
      {"", "\"\""}, {"P1", "P1"}, {"B2-017 east", "B2-017 east"}, {"\xB3\xB5", "(left out, not ASCII)"}};
  ResetFake();
  bs::Rs485ProBuild builder;
  int unseen = 0;
  for (int round = 0; round < 2000; ++round) {
    const std::string entries = AnyList();
    const Json::Value list = FieldList(entries);
    ASSERT_TRUE(builder.SetRs485Cfg(list));
    const auto& [plate, plate_of_seven, plate_of_eight] = kPlates[Below(std::size(kPlates))];
    LX_ParkingResult result = {};
    SetPlate(result, plate);
    result.plate_type = Below(3) == 0 ? bs::kLongPlateType : static_cast<int32_t>(Below(25));
    const bool is_long = result.plate_type == bs::kLongPlateType;
    // Without its name, a frame with a plate of eight bytes can be read in two ways.
    const auto& [name, name_told] = kNames[Below(is_long ? 3 : 4)];
    strcpy(result.space_name, name);
    result.plate_confidence = static_cast<int32_t>(Below(120));
    result.plate_color = static_cast<int32_t>(Below(8));
    result.vehicle_color = static_cast<int32_t>(Below(12));
    result.vehicle_color_class = static_cast<uint8_t>(Below(7));
    result.time_stamp = 1700000000 + Below(100000000);
    result.space_status = static_cast<int32_t>(Below(6));
    result.trigger = static_cast<int32_t>(Below(12));
    const uint32_t free = Below(100000);
    unsigned length = 0;
    const uint8_t* built = builder.GetDevRs485ProData(length, free, 3, &result);
    std::string burst(reinterpret_cast<const char*>(built), length);
    SCOPED_TRACE(entries + "\n" + words::HexText(burst.data(), burst.size()));
    burst += burst;

    const std::vector<DecodedFrame> frames = words::DecodeBurst(Bytes(burst), burst.size(), list);
    ASSERT_EQ(frames.size(), 2u) << frames[0].Text();
    ASSERT_EQ(frames[0].size, length);
    const DecodedFrame& frame = frames[0];
    ASSERT_EQ(frame.kind, FrameKind::kConfigurable) << frame.Text();
    EXPECT_EQ(ValueOf(frame, "license"), is_long ? plate_of_eight : plate_of_seven);
    EXPECT_EQ(ValueOf(frame, "framename"), name_told);
    EXPECT_EQ(ValueOf(frame, "freenum"), std::to_string(free));
    EXPECT_EQ(ValueOf(frame, "time"), words::TimeText(result.time_stamp));

    // One wrong bit in what the check byte covers is seen, but where another reading happens to fit.
    if (ValueOf(frame, "check").empty() || is_long) continue;
    const size_t covered = list["pro_cfg"][13]["checkbegin"].asUInt();
    if (covered + 1 >= list["pro_cfg"][14]["checkend"].asUInt()) continue;
    burst[covered] = static_cast<char>(burst[covered] ^ 1);
    unseen += words::DecodeFrame(Bytes(burst), length, list).kind == FrameKind::kConfigurable ? 1 : 0;
  }
  EXPECT_LT(unseen, 10);
}

TEST(SerialDecoder, ReadsBackFixedFrames) {
  for (const uint32_t value : {0u, 9u, 10u, 1048576u, 2147483647u}) {
    uint8_t frame[bs::kDisplayFrameMax];
    bs::ByteWriter out(frame);
    bs::EncodeDisplayFrame(value, 0x104, out);
    const size_t size = out.size();
    EXPECT_EQ(words::DecodeFrame(frame, size, Json::Value()).Text(), "display 4 shows " + std::to_string(value));
    EXPECT_EQ(words::DecodeFrame(frame, size - 1, Json::Value()).kind, FrameKind::kUnknown);
  }
  uint8_t relay[bs::kRelayFrameSize];
  bs::ByteWriter out(relay);
  bs::EncodeRelayFrame(23, true, out);  // its address is the display frame's mark
  EXPECT_EQ(words::DecodeFrame(relay, sizeof relay, Json::Value()).Text(), "relay 23 is told occupied");
}

TEST(SerialDecoder, BeaconLines) {
  const auto* uuid = reinterpret_cast<const unsigned char*>("FDA50693A4E24FB1");
  const std::pair<std::string, const char*> kRows[] = {
      {std::string(bs::UuidCommand(uuid).Text()), "set uuid \"FDA50693A4E24FB1\""},
      {std::string(bs::MajorCommand(101).Text()), "set major 0x0065 (101)"},
      {std::string(bs::NameCommand("gate \x1B[2J").Text()), "set name \"gate \\x1B[2J\""},
      {std::string(bs::TestPowerCommand(-55).Text()), "set measured power at 1 m -55 dBm"},
      {std::string(bs::TimeQuery().Text()), "ask for the time"},
      {std::string(bs::InfoCommand().Text()), "ask for the identity"},
      {"MTD:OK\r\n", "accepted"},
      {"MTD:UID-0x30313233343536373839414243444546\r\n", "identity: uuid \"0123456789ABCDEF\""},
      {"MTD:UID-0x30313233343536373839414243444546\r\nMTD:MAJ-0x0065\r\nMTD:MIN-0x0066\r\nMTD:MEA--55\r\n",
       "identity: uuid \"0123456789ABCDEF\", major 101, minor 102, measured power -55 dBm"},
      {"DTM:MAJ-0xZZ", "set major \"ZZ\""},
      {"MTD:RTC-2026", "time 2026"},
      {"DTM:MAJ-0x0065x", "set major \"0065x\""},
      {"DTM:", ""},
      {"hello", ""},
  };
  for (const auto& [line, said] : kRows) EXPECT_EQ(words::DescribeBeaconLine(line), said) << line;
}

TEST(PlainWords, TextsFromStrangers) {
  EXPECT_EQ(words::GbkToUtf8("\xBE\xA9"
                             "A1\xFF\xFF"),
            "京A1??");
  EXPECT_EQ(words::GbkToUtf8("\xBE"), "?");
  std::string gbk = "kept";
  EXPECT_FALSE(words::Utf8ToGbk("A\xF0\x9F\x9A\x97", gbk));
  EXPECT_EQ(gbk, "kept");
  EXPECT_EQ(words::Printable("a\n\x1B\x7F京\xC2\x9B\xE4\xBA\xED\xA0\x80\xC0\xAF"),
            "a\\x0A\\x1B\\x7F京\\xC2\\x9B\\xE4\\xBA\\xED\\xA0\\x80\\xC0\\xAF");
}

TEST(PlainWords, HexAndAddresses) {
  std::string bytes = "kept";
  for (const char* bad : {"G1", "AA0", "0x", "AA,BB", "-1"}) EXPECT_FALSE(words::ParseHex(bad, bytes)) << bad;
  EXPECT_EQ(bytes, "kept");
  EXPECT_TRUE(words::ParseHex(" 0xAA 1\taa17", bytes));
  EXPECT_EQ(bytes, "\xAA\x01\xAA\x17");
  uint32_t ip = 0;
  EXPECT_TRUE(words::ParseAddress("192.168.1.20", ip));
  EXPECT_EQ(ip, 0x1401A8C0u);
  EXPECT_EQ(words::AddressText(ip), "192.168.1.20");
  EXPECT_FALSE(words::ParseAddress("192.168.1", ip));
}

TEST(PlainWords, LampColours) {
  EXPECT_EQ(words::LedColorText(0), "0 (line 1)");
  EXPECT_EQ(words::LedColorText(6), "6 (lines 1+3)");
  EXPECT_EQ(words::LedColorText(3), "3 (all lines)");
  EXPECT_EQ(words::LedColorText(8), "8 (no such colour, the lamp stays as it is)");
  EXPECT_EQ(words::LedRegisterText(0x41), "other bits 0x41");
}

}  // namespace
