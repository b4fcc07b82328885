#include "lx_logging.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spdlog/details/null_mutex.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "log_level.h"
#include "log_text.h"
#include "signals.h"

namespace {

constexpr char kLogSource[] = "platform/linux/logging";
constexpr size_t kUsualLength = 120;        // of a record's text: longer ones grow
constexpr size_t kLongestText = 16 * 1024;  // as shown; no message of the device is as long
constexpr size_t kFileSize = size_t{1024} * 1024;
constexpr size_t kOlderFiles = 2;  // beside the one that is written
// The text is put into place by CLxLogStream.
constexpr char kRecordForm[] = "%Y-%m-%d %H:%M:%S.%e %v";

// Asked for by the command line, and what is shown now: a signal may change that at any time.
volatile std::sig_atomic_t usual_level = lxlogging::kInfo;
volatile std::sig_atomic_t shown_from = lxlogging::kInfo;
volatile std::sig_atomic_t level_is_unsaid = 0;

bool to_journal = false;  // standard error is the journal's

// How a level comes out in the journal.
constexpr struct {
  int level;
  spdlog::level::level_enum carried;  // the log library's
  std::string_view prefix;            // the supervisor's word for it: debug, info, error
} kPriorities[] = {
    {lxlogging::kInfo, spdlog::level::debug, "<7>"},
    {lxlogging::kLifecycle, spdlog::level::info, "<6>"},
    {lxlogging::kError, spdlog::level::err, "<3>"},
};

spdlog::level::level_enum CarriedLevel(int level) {
  return kPriorities[std::clamp(level, lxlogging::kInfo, lxlogging::kError) - lxlogging::kInfo].carried;
}

void AppendPriority(spdlog::level::level_enum carried, spdlog::memory_buf_t* record) {
  if (!to_journal) return;
  for (const auto& row : kPriorities) {
    if (row.carried == carried) record->append(row.prefix.data(), row.prefix.data() + row.prefix.size());
  }
}

// The supervisor names the device and inode that it gave as standard error: a redirected one is another.
bool IsJournal(int fd) {
  const char* const stream = getenv("JOURNAL_STREAM");
  struct stat here;
  return stream != nullptr && fstat(fd, &here) == 0 && fmt::format("{}:{}", here.st_dev, here.st_ino) == stream;
}

// Standard error may be a pipe that nobody reads: a record then waits for a moment, later ones not at all, until the
// reader is back and is told how many it missed.
class StandardErrorSink : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
 protected:
  void sink_it_(const spdlog::details::log_msg& msg) override {
    spdlog::memory_buf_t record;
    if (torn_) record.push_back('\n');
    if (lost_ > 0) {
      const std::string text = fmt::format("3 {}:{} {} log records were lost here", kLogSource, __LINE__, lost_);
      const spdlog::details::log_msg notice("", spdlog::level::err, text);
      AppendPriority(notice.level, &record);
      formatter_->format(notice, record);
    }
    AppendPriority(msg.level, &record);
    formatter_->format(msg, record);
    const size_t written = Write(record);
    torn_ = written > 0 ? written < record.size() : torn_;
    lost_ = written == record.size() ? 0 : lost_ + 1;
  }
  void flush_() override {}

 private:
  // Returns how many bytes went out.
  size_t Write(const spdlog::memory_buf_t& record) {
    size_t done = 0;
    while (done < record.size()) {
      const ssize_t count = WriteReady(record.data() + done, record.size() - done);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) break;
      done += static_cast<size_t>(count);
    }
    return done;
  }

  // One write that waits for the reader no longer than for this record's patience.
  ssize_t WriteReady(const char* data, size_t size) {
    // The journal's socket says by itself that it is full: one call a record instead of two.
    if (may_be_socket_) {
      const ssize_t count = send(STDERR_FILENO, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
      if (count >= 0 || (errno != ENOTSOCK && errno != EAGAIN)) return count;
      if (errno == ENOTSOCK) may_be_socket_ = false;
    }
    pollfd ready = {STDERR_FILENO, POLLOUT, 0};
    if (poll(&ready, 1, lost_ > 0 ? 0 : kPatienceMs) <= 0 || (ready.revents & POLLOUT) == 0) return 0;
    if (may_be_socket_) return send(STDERR_FILENO, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    // A pipe that is ready takes PIPE_BUF bytes without blocking, and perhaps no more.
    return write(STDERR_FILENO, data, std::min<size_t>(size, PIPE_BUF));
  }

  static constexpr int kPatienceMs = 100;
  bool may_be_socket_ = true;
  unsigned long lost_ = 0;
  bool torn_ = false;  // the last thing written is the head of a lost record
};

std::shared_ptr<spdlog::logger> MakeLogger(spdlog::sink_ptr sink) {
  auto logger = std::make_shared<spdlog::logger>("", std::move(sink));
  logger->set_pattern(kRecordForm);
  logger->set_level(spdlog::level::trace);
  logger->flush_on(spdlog::level::trace);
  return logger;
}

// Never destroyed: records of static destructors come out too.
spdlog::logger& ToStandardError() {
  static auto* const logger = [] {
    platform::IgnoreBrokenPipes();
    return new auto(MakeLogger(std::make_shared<StandardErrorSink>()));
  }();
  return **logger;
}

std::shared_ptr<spdlog::logger>& FileLogger() {
  static auto* const logger = new std::shared_ptr<spdlog::logger>;
  return *logger;
}

bool OpenLogFile(const char* path) {
  spdlog::file_event_handlers on_file;
  on_file.after_open = [](const spdlog::filename_t&, std::FILE* file) {
    // Programs started through the shell must not keep rotated files alive.
    fcntl(fileno(file), F_SETFD, FD_CLOEXEC);
  };
  try {
    FileLogger() = MakeLogger(
        std::make_shared<spdlog::sinks::rotating_file_sink_st>(path, kFileSize, kOlderFiles, false, on_file));
    FileLogger()->set_error_handler([reported = false](const std::string& error) mutable {
      if (reported) return;
      reported = true;
      ToStandardError().log(spdlog::source_loc{}, spdlog::level::err,
                            fmt::format("3 {}:{} the log file fails: {}", kLogSource, __LINE__, error));
    });
    return true;
  } catch (const spdlog::spdlog_ex& e) {
    lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0) << "no log file: " << e.what();
    return false;
  }
}

// A closed standard descriptor would become that of the first socket, and log records would go to the bus.
void OpenStandardDescriptors() {
  int fd = open("/dev/null", O_RDWR);
  while (fd >= 0 && fd <= STDERR_FILENO) fd = dup(fd);
  if (fd >= 0) close(fd);
}

bool ParseLevel(const char* text) {
  int level = 0;
  const char* const end = text + strlen(text);
  const auto [parsed, error] = std::from_chars(text, end, level);
  if (error != std::errc() || parsed != end) return false;
  usual_level = shown_from = level;
  return true;
}

// "1 lib/businessserver/server/business_server:42 "
void AppendHead(int level, std::string_view source_file, int source_line, spdlog::memory_buf_t* line) {
  const fmt::format_int level_text(level), line_text(source_line);
  line->append(level_text.data(), level_text.data() + level_text.size());
  line->push_back(' ');
  line->append(source_file.data(), source_file.data() + source_file.size());
  line->push_back(':');
  line->append(line_text.data(), line_text.data() + line_text.size());
  line->push_back(' ');
}

}  // namespace

int InitLxLogging(int argc, char** argv) {
  OpenStandardDescriptors();
  to_journal = IsJournal(STDERR_FILENO);
  int result = 1;
  for (int i = 1; i < argc; ++i) {
    const std::string_view option = argv[i];
    const char* const value = i + 1 < argc ? argv[i + 1] : nullptr;
    if (option == "-v" && value != nullptr && ParseLevel(value)) {
      ++i;
    } else if (option == "-f" && value != nullptr) {
      if (!OpenLogFile(value)) result = -1;
      ++i;
    } else {
      lxlogging::CLxLogStream(lxlogging::kError, kLogSource, __LINE__, 0) << "argument ignored: " << option;
    }
  }
  return result;
}

void ExitLxLogging() { FileLogger().reset(); }

namespace platform {

// As with the signals to end: one that whoever started the process has it ignore stays ignored.
void ListenToLevelSignals() {
  for (const int number : {kShowAllSignal, kShowUsualSignal}) {
    struct sigaction action = {};
    if (sigaction(number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) continue;
    action = {};
    action.sa_handler = [](int received) {
      shown_from = received == kShowAllSignal ? +lxlogging::kInfo : usual_level;
      level_is_unsaid = 1;
    };
    action.sa_flags = SA_RESTART;
    sigaction(number, &action, nullptr);
  }
}

void SayNewLevel() {
  if (level_is_unsaid == 0) return;
  level_is_unsaid = 0;
  const int level = shown_from;
  lxlogging::CLxLogStream(std::max(level, lxlogging::kLifecycle), kLogSource, __LINE__, 0)
      << "records of level " << level << " and up are shown from now on";
}

}  // namespace platform

namespace lxlogging {

bool IsShown(int level) { return level >= shown_from; }

CLxLogStream::CLxLogStream(int level, const char* source_file, int source_line, int)
    : shown_(IsShown(level)), level_(level), source_file_(source_file), source_line_(source_line) {
  if (shown_) text_.reserve(kUsualLength);
}

CLxLogStream::~CLxLogStream() {
  if (!shown_) return;
  spdlog::memory_buf_t line;
  AppendHead(level_, source_file_, source_line_, &line);
  platform::AppendLogText(std::string_view(text_).substr(0, kLongestText), &line);
  if (text_.size() > kLongestText) platform::AppendLogText(fmt::format("... ({} bytes)", text_.size()), &line);
  spdlog::logger& logger = FileLogger() ? *FileLogger() : ToStandardError();
  logger.log(spdlog::source_loc{}, CarriedLevel(level_), spdlog::string_view_t(line.data(), line.size()));
}

}  // namespace lxlogging
