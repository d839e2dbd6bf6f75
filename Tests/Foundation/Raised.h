#pragma once

#include <optional>
#include <string>

#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSException.h"

namespace tavlo::test {

// What the body raises, as "NAME: REASON"; empty when it raises nothing of the family.
template <class Body>
std::string raised(const Body& body) {
  try {
    body();
  } catch (const NSException& exception) {
    return exception.name() + ": " + exception.description();
  }
  return "";
}

// The name alone.
template <class Body>
std::string raisedName(const Body& body) {
  const std::string text = raised(body);
  return text.substr(0, text.find(':'));
}

// The limit that the body reaches; absent when it reaches none.
template <class Body>
std::optional<KorTemplateLimit> limitReached(const Body& body) {
  try {
    body();
  } catch (const KorTemplateLimitException& exception) {
    return exception.limit();
  }
  return {};
}

}  // namespace tavlo::test
