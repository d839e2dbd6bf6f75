#pragma once

#include "Lexwright/KorRegularExpressionRule.h"

namespace tavlo::test {

// Turns all recognisers on or off; they are on again at its end.
class RecogniserSwitch {
 public:
  explicit RecogniserSwitch(bool enabled) { KorRegularExpressionRule::setRecognisersEnabled(enabled); }
  ~RecogniserSwitch() { KorRegularExpressionRule::setRecognisersEnabled(true); }
  RecogniserSwitch(const RecogniserSwitch&) = delete;
  RecogniserSwitch& operator=(const RecogniserSwitch&) = delete;
};

}  // namespace tavlo::test
