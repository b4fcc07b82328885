#include "board.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "plain_words.h"

namespace desk {
namespace {

constexpr off_t kPinMuxBase = 0x200F0000;
constexpr off_t kGpioBase = 0x201B0000;
constexpr size_t kBlockSize = 0x1000;
constexpr uint32_t kDataRegister = 0x3FC;
constexpr uint32_t kDirectionRegister = 0x400;
constexpr uint32_t kFirstLineBit = 2;
constexpr uint32_t kLines = 3;
constexpr int kColors = 8;

char* MapBlock(int file, off_t base) {
  void* block = mmap(nullptr, kBlockSize, PROT_READ | PROT_WRITE, MAP_SHARED, file, base);
  return block == MAP_FAILED ? nullptr : static_cast<char*>(block);
}

}  // namespace

Board::~Board() {
  if (gpio_ != nullptr) munmap(gpio_, kBlockSize);
  if (pin_mux_ != nullptr) munmap(pin_mux_, kBlockSize);
}

bool Board::Create(const std::string& directory, std::string& problem) {
  mkdir((directory + "/dev").c_str(), 0755);
  const std::string path = directory + "/" + kMemoryFile;
  unlink(path.c_str());
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (file >= 0 && ftruncate(file, kGpioBase + static_cast<off_t>(kBlockSize)) == 0) {
    gpio_ = MapBlock(file, kGpioBase);
    pin_mux_ = MapBlock(file, kPinMuxBase);
  }
  if (gpio_ == nullptr || pin_mux_ == nullptr) problem = "cannot make " + path + ": " + strerror(errno);
  if (file >= 0) close(file);
  return gpio_ != nullptr && pin_mux_ != nullptr;
}

volatile uint32_t* Board::Register(char* block, uint32_t offset) const {
  return reinterpret_cast<volatile uint32_t*>(block + offset);
}

uint32_t Board::LedData() const { return *Register(gpio_, kDataRegister); }
uint32_t Board::LedDirection() const { return *Register(gpio_, kDirectionRegister); }
uint32_t Board::PinMux(uint32_t offset) const { return *Register(pin_mux_, offset); }
void Board::SetLedData(uint32_t value) { *Register(gpio_, kDataRegister) = value; }

int LedColor(uint32_t data) {
  const std::string lit = " (" + decode::LedRegisterText(data) + ")";
  for (int color = 0; color < kColors; ++color) {
    if (decode::LedColorText(color) == std::to_string(color) + lit) return color;
  }
  return -1;
}

std::string LedLines(uint32_t data) {
  std::string lines;
  for (uint32_t line = 0; line < kLines; ++line) {
    if ((data >> (kFirstLineBit + line) & 1) == 0) continue;
    if (!lines.empty()) lines += '+';
    lines += static_cast<char>('1' + line);
  }
  return lines.empty() ? "none" : lines;
}

}  // namespace desk
