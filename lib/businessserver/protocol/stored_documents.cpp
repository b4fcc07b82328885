#include "protocol/stored_documents.h"

#include <cstddef>

namespace businessserver {

namespace {

// A default as the device stores it: line breaks dropped and each two blanks of indentation turned into one tab.
template <size_t N>
struct TabbedText {
  char text[N] = {};
  size_t size = 0;

  constexpr explicit TabbedText(const char (&source)[N]) {
    bool indenting = true;
    for (size_t i = 0; i + 1 < N; ++i) {
      if (source[i] == '\n') {
        indenting = true;
      } else if (indenting && source[i] == ' ') {
        text[size++] = '\t';
        ++i;
      } else {
        indenting = false;
        text[size++] = source[i];
      }
    }
  }
  constexpr std::string_view View() const { return {text, size}; }
};

// Kept: the comma after "endsec". The classic reader refuses it, so this default is answered but never stored.
constexpr TabbedText kReserveText(R"(
  {
    "reservecfg" : {
      "reservenum" : 1,
      "reserve" : [
        {
          "plate" : "plate1", "frame" : "frame1", "occupyalarm" : 0,
          "startyear" : 2015, "startmon" : 5, "startday" : 20, "starthour" : 8, "startmin" : 30, "pstartsec" : 30,
          "endyear" : 2015, "endmon" : 5, "endday" : 25, "endhour" : 9, "endmin" : 30, "endsec" : 30,
        }
      ]
    }
  })");

constexpr TabbedText kLedColourText(R"(
  {
    "externalcontrol_enable" : 0,
    "parkingledcolorcfg" : {
      "parkingfreeledcolor" : 1,
      "parkingfreeledcolortwinkle" : 0,
      "parkingoccupyledcolor" : 0,
      "parkingoccupyledcolortwinkle" : 0,
      "parkingretainledcolor" : 2,
      "parkingretainledcolortwinkle" : 0,
      "parkingalarmledcolor" : 3,
      "parkingalarmledcolortwinkle" : 1
    }
  })");

constexpr TabbedText kTtyioText(R"(
  {
    "ttyionum" : 2,
    "baudrate" : 9600,
    "checkbit" : 0,
    "databit" : 8,
    "stopbit" : 1
  })");
static_assert(kTtyioText.size == 89, "the device's own text");

constexpr TabbedText kExtTtyioText(R"(
  {
    "proto" : 0,
    "f_ena" : 0,
    "f_addr" : 0,
    "r_ena" : 0,
    "r_addr" : 0,
    "l_ena" : 0,
    "l_addr" : 0,
    "frame1_addr" : 0,
    "frame2_addr" : 0,
    "frame3_addr" : 0
  })");

constexpr TabbedText kRs485proText(R"(
  {
    "pro_cfg" : [
      {"header" : "BB88" },
      {"enable" : 1 },
      {"license" : 1 },
      {"licensecolor" : 0 },
      {"licenseconf" : 0 },
      {"licensetype" : 0 },
      {"trigger" : 0 },
      {"carcolor" : 0 },
      {"time" : 0 },
      {"framestatus" : 1 },
      {"occupyline" : 0 },
      {"headconf" : 0 },
      {"freenum" : 1 },
      {"framenum" : 1 },
      {"framename" : 1 },
      {"checkbegin" : 2 },
      {"checkend" : 2 },
      {"checksum" : 2 },
      {"end" : "33" }
    ]
  })");

constexpr std::string_view kDefaults[] = {
    kReserveText.View(),                                                      //  0 space reservations
    kLedColourText.View(),                                                    //  1 LED colour of each space state
    "\t{\t\t\"log_index\" : -1,\t}",                                          //  2 no key uses it; kept, with its comma
    kTtyioText.View(),                                                        //  3 external serial line
    kExtTtyioText.View(),                                                     //  4 fixed serial protocols
    "\t{\t\t\"name\" : \"ibeacon\"\t}",                                       //  5 beacon name
    "\t{\t\t\"time\" : 100\t}",                                               //  6 beacon connection time
    "\t{\t\t\"time\" : 500\t}",                                               //  7 beacon broadcast period, ms
    "\t{\t\t\"id\" : 0\t}",                                                   //  8 beacon identifier
    "\t{\t\t\"power\" : 4\t}",                                                //  9 beacon transmit power, dBm
    "\t{\t\t\"uuid\" : \"uuid\",\t\t\"major\" : 101,\t\t\"minor\" : 101\t}",  // 10 no key uses it
    kRs485proText.View(),                                                     // 11 fields of the configurable frame
    "\t{\t\t\"power\" : -55\t}",                                              // 12 beacon measured power, dBm
    "\t{\t\t\"model\" : 0\t}",                                                // 13 control model
    "\t{\t\t\"level\" : 0,\t\t\"data\" : \"cTdXbTRadDJQ\",\t\t\"data_len\" : 9\t}",  // 14 result encryption
    "\t{\t\t\"pos\" : 0\t}",                                                         // 15 device position
};
static_assert(sizeof kDefaults / sizeof kDefaults[0] == kDefaultDocuments);

}  // namespace

std::string_view DefaultDocument(int index) {
  if (index < 0 || index >= kDefaultDocuments) return {};
  return kDefaults[index];
}

}  // namespace businessserver
