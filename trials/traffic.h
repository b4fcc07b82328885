// What a device on trial is busy with: documents that are set one at a time, and results. Every text follows from its
// number, so that whatever the store holds can be told to be one that was sent, and not older than what was
// acknowledged.
#pragma once

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "protocol/stored_documents.h"
#include "rig.h"

namespace trials {

// How long a program may be away on a machine that others keep busy. What is measured is told; this only ends a trial
// that would wait for ever.
inline constexpr Milliseconds kReturnLimit(30000);

// What was promised and did not hold: told at once, counted for the exit status.
void Breach(const std::string& what);
int Breaches();

// A document that is set again and again.
struct TrialDocument {
  const char* command;
  const businessserver::StoredDocument* stored;
  std::string content;  // with # for a number from 2 to 7, none of them a default
  int sent = 0;
  int acknowledged = 0;  // highest number

  std::string Body(int number) const;
  std::string Text(int number) const;  // as it is stored
};

class Traffic {
 public:
  enum class Pace {
    kNone,    // nothing is on its way
    kSlow,    // a set now and then, to see when the device is back
    kSteady,  // a set every millisecond, 250 results a second
    kFull,    // the next set as soon as one is answered
  };

  explicit Traffic(Rig& rig);

  // kNone: returns when no set is on its way any more.
  void Go(Pace pace);

  void RunFor(int milliseconds) { rig_.loop.RunFor(Milliseconds(milliseconds)); }

  // From now until a set that is sent from now on is acknowledged, in ms.
  int AwaitReturn(const std::string& after);

  // One set of a document, beside or without the others; done hears whether it was acknowledged.
  bool Set(size_t document, std::function<void(bool acknowledged)> done);

  // Reads every document back from the store.
  void CheckDocuments(const std::string& after);

  // Ends at Pace::kNone, with colours that the daemon has taken up. After a set that the store could not take it goes
  // by the default, by contract.
  void Settle();

  // Settled, and no set of the colours since: the daemon goes by what its store says, not by a default that it fell
  // back to.
  void CheckApplied(const std::string& after);

  // A result goes through the daemon: it comes back as the republished copy.
  void CheckResults(const std::string& after);

  static constexpr size_t kColours = 5;  // the document that CheckApplied asks for

  int acknowledged = 0, refused = 0, results = 0;

 private:
  void Tick();
  void SetNext();
  std::string Result() const;

  Rig& rig_;
  std::vector<TrialDocument> documents_;
  Pace pace_ = Pace::kSteady;
  unsigned ticks_ = 0;
  bool waiting_ = false;
  Loop::Clock::time_point sent_at_;
  int begun_ = 0;  // sets so far
  int newest_acknowledged_ = 0;
};

}  // namespace trials
