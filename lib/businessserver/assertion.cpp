#include "assertion.h"

#include <cstdio>
#include <cstdlib>

#include "log.h"

namespace businessserver {

namespace {

constexpr char kLogSource[] = "lib/businessserver/assertion";

}  // namespace

#if defined(NDEBUG) && !defined(_GLIBCXX_ASSERTIONS)
bool assertions_end_the_process = false;
#else
bool assertions_end_the_process = true;
#endif

void AssertionFailed(const char* condition, const char* source, int line) {
  if (assertions_end_the_process) {
    fprintf(stderr, "%s:%d: not true: %s\n", source, line, condition);
    abort();
  }
  static bool said = false;
  if (!said) BS_LOG(kError) << source << ":" << line << ": not true: " << condition;
  said = true;
}

}  // namespace businessserver
