// What a device is asked and told in a played history: what its owner had stored, requests that make sense, and
// nonsense.
#pragma once

#include <string>

#include "years/chance.h"
#include "years/store.h"

namespace years {

struct Question {
  const char* path;  // the bus message that carries it
  std::string text;
};

// Documents that are all different from their defaults.
void PutOwnersDocuments(Store& store, unsigned device);

// A question that the device answers at once and that leaves its displays and spaces as they are.
Question DrawQuestion(Random& random);

// What a device's relay answers or carries: readings, and changes that are tried and go back or are kept.
std::string DrawQuestionFromAfar(Random& random);

std::string DrawBytes(Random& random, size_t size);

// Texts that are nearly a message, or not at all.
std::string DrawNonsense(Random& random);

}  // namespace years
