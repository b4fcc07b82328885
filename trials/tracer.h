// Stops a running program at its n-th system call that leaves a mark, and kills it there: before the kernel carries it
// out, or when it has and the program does not know yet.
#pragma once

#include <sys/types.h>

#include <string>

namespace trials {

enum class Moment { kBefore, kAfter };

class Tracer {
 public:
  // Counts from now on. A process of its own does it, so that the end of the program is still its starter's to see.
  // every_call: also those that leave no mark.
  Tracer(pid_t program, int call, Moment moment, bool every_call);
  ~Tracer();  // lets the program go on, if it lives
  Tracer(const Tracer&) = delete;
  Tracer& operator=(const Tracer&) = delete;

  bool attached() const { return attached_; }

  // Whether it has killed the program by now, and at which call.
  bool HasKilled();
  const std::string& call() const { return call_; }

 private:
  pid_t process_ = -1;
  int report_ = -1;
  bool attached_ = false;
  std::string call_;
};

}  // namespace trials
