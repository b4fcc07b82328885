#include "whole_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace parkctl {

namespace {

bool WriteAll(int fd, const std::string& text) {
  for (size_t done = 0; done < text.size();) {
    const ssize_t count = write(fd, text.data() + done, text.size() - done);
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) done += static_cast<size_t>(count);
  }
  return fsync(fd) == 0;
}

// The new name is on the medium too; a file system that cannot say so has it all the same.
void SyncDirectory(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
}

}  // namespace

std::string WriteWholeFile(const std::string& path, const std::string& text) {
  const std::string draft = path + ".draft";
  const int fd = open(draft.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return strerror(errno);
  int error = WriteAll(fd, text) ? 0 : errno;
  if (close(fd) != 0 && error == 0) error = errno;
  if (error == 0 && rename(draft.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) {
    unlink(draft.c_str());
    return strerror(error);
  }
  SyncDirectory(path);
  return "";
}

}  // namespace parkctl
