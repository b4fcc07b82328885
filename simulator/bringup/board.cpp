#include "bringup/board.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "board_devices.h"
#include "board_registers.h"

namespace desk {
namespace {

constexpr size_t kBlockSize = 0x1000;

}  // namespace

Board::~Board() {
  if (gpio_ != nullptr) munmap(gpio_, kBlockSize);
}

bool Board::Create(const std::string& directory, std::string& problem) {
  const std::string path = directory + "/" + board_devices::kMemory;
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
  unlink(path.c_str());
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (file >= 0 && ftruncate(file, board::kLedGpioBase + static_cast<off_t>(kBlockSize)) == 0) {
    void* block = mmap(nullptr, kBlockSize, PROT_READ | PROT_WRITE, MAP_SHARED, file, board::kLedGpioBase);
    if (block != MAP_FAILED) gpio_ = static_cast<char*>(block);
  }
  if (gpio_ == nullptr) problem = "cannot make " + path + ": " + strerror(errno);
  if (file >= 0) close(file);
  return gpio_ != nullptr;
}

uint32_t Board::LedData() const { return *reinterpret_cast<volatile uint32_t*>(gpio_ + board::kGpioData); }

}  // namespace desk
