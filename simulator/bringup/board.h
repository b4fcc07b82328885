// The board's memory file in a directory, with the register blocks that the daemon maps. It is sparse; only the touched
// pages take up space.
#pragma once

#include <cstdint>
#include <string>

namespace desk {

class Board {
 public:
  Board() = default;
  ~Board();
  Board(const Board&) = delete;
  Board& operator=(const Board&) = delete;

  // Makes the files below directory, which exists. On failure problem says what went wrong.
  bool Create(const std::string& directory, std::string& problem);

  uint32_t LedData() const;  // data register of the lamp's GPIO bank, the three lamp lines in bits 2 to 4

 private:
  char* gpio_ = nullptr;
};

}  // namespace desk
