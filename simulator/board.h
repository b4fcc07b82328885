// The board's files in a directory: dev/mem with the two register blocks that the daemon maps, and the names of its
// two serial lines. The memory file is sparse; only the touched pages take up space.
#pragma once

#include <cstdint>
#include <string>

namespace desk {

inline constexpr char kMemoryFile[] = "dev/mem";
inline constexpr char kBeaconLine[] = "dev/ttyAMA1";
inline constexpr char kExternalLine[] = "dev/ttyAMA2";

class Board {
 public:
  Board() = default;
  ~Board();
  Board(const Board&) = delete;
  Board& operator=(const Board&) = delete;

  // Makes the files below directory, which exists. On failure problem says what went wrong.
  bool Create(const std::string& directory, std::string& problem);

  uint32_t LedData() const;       // data register of the lamp's GPIO bank, the three lamp lines in bits 2 to 4
  uint32_t LedDirection() const;  // 1: output
  uint32_t PinMux(uint32_t offset) const;

  // What a person does with a logic probe: sets a register behind the daemon's back.
  void SetLedData(uint32_t value);

 private:
  volatile uint32_t* Register(char* block, uint32_t offset) const;

  char* gpio_ = nullptr;
  char* pin_mux_ = nullptr;
};

// The colour number that makes such a data register, or -1.
int LedColor(uint32_t data);

// The lamp lines that are lit: "1+3", "none", "1+2+3".
std::string LedLines(uint32_t data);

}  // namespace desk
