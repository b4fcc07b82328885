#include "bringup/board.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace desk {
namespace {

constexpr off_t kGpioBase = 0x201B0000;
constexpr size_t kBlockSize = 0x1000;
constexpr uint32_t kDataRegister = 0x3FC;

}  // namespace

Board::~Board() {
  if (gpio_ != nullptr) munmap(gpio_, kBlockSize);
}

bool Board::Create(const std::string& directory, std::string& problem) {
  mkdir((directory + "/dev").c_str(), 0755);
  const std::string path = directory + "/" + kMemoryFile;
  unlink(path.c_str());
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (file >= 0 && ftruncate(file, kGpioBase + static_cast<off_t>(kBlockSize)) == 0) {
    void* block = mmap(nullptr, kBlockSize, PROT_READ | PROT_WRITE, MAP_SHARED, file, kGpioBase);
    if (block != MAP_FAILED) gpio_ = static_cast<char*>(block);
  }
  if (gpio_ == nullptr) problem = "cannot make " + path + ": " + strerror(errno);
  if (file >= 0) close(file);
  return gpio_ != nullptr;
}

uint32_t Board::LedData() const { return *reinterpret_cast<volatile uint32_t*>(gpio_ + kDataRegister); }

}  // namespace desk
