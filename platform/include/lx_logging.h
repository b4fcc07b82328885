// Logging: one record a stream object, written when the object is destroyed.
#pragma once

#include <string>
#include <string_view>
#include <type_traits>

// Reads the logging options from the process arguments (-v LEVEL, -f PATH). Records written before this call or
// after ExitLxLogging still come out, on standard error.
int InitLxLogging(int argc, char** argv);
void ExitLxLogging();

namespace lxlogging {

constexpr int kInfo = 1;       // progress and received messages
constexpr int kLifecycle = 2;  // construction, destruction, the end of the process
constexpr int kError = 3;

// Whether records of this level are shown: ask before making a text that is costly to make.
bool IsShown(int level);

class CLxLogStream {
 public:
  // source_file must outlive the object. The last argument is passed as 0.
  CLxLogStream(int level, const char* source_file, int source_line, int);
  ~CLxLogStream();
  CLxLogStream(const CLxLogStream&) = delete;
  CLxLogStream& operator=(const CLxLogStream&) = delete;

  CLxLogStream& operator<<(std::string_view text) {
    if (shown_) text_.append(text);
    return *this;
  }
  CLxLogStream& operator<<(const char* text) { return *this << std::string_view(text != nullptr ? text : ""); }
  template <typename T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, char>, int> = 0>
  CLxLogStream& operator<<(T number) {
    if (shown_) text_.append(std::to_string(number));
    return *this;
  }

 private:
  const bool shown_;
  const int level_;
  const char* const source_file_;
  const int source_line_;
  std::string text_;
};

}  // namespace lxlogging
