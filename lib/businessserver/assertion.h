// What only a fault of our own can break: a table that is in step, an index in range, room that was reckoned with.
// What other programs send is never asserted but refused.
#pragma once

namespace businessserver {

// Ends the process in tests and under sanitizers. A device goes on, and its log names the first one.
[[gnu::cold]] void AssertionFailed(const char* condition, const char* source, int line);

// True where a sanitizer watches or nothing is optimised; tests set it.
extern bool assertions_end_the_process;

}  // namespace businessserver

#define BS_ASSERT(condition) \
  (__builtin_expect(!(condition), 0) ? businessserver::AssertionFailed(#condition, __FILE_NAME__, __LINE__) : void())
