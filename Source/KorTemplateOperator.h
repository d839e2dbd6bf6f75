#pragma once

#include <cstdint>

#include "Foundation/Value.h"

namespace tavlo {

// The operators of the language. A node accepts every other value too.
enum KorTemplateOperator : std::int32_t {
  KorTemplateOperatorAssignment = 0,
  KorTemplateOperatorEquals = 1,
  KorTemplateOperatorNotEquals = 2,
  KorTemplateOperatorMatches = 3,
  KorTemplateOperatorLessThan = 4,
  KorTemplateOperatorGreaterThan = 5,
  KorTemplateOperatorLessThanOrEqualTo = 6,
  KorTemplateOperatorGreaterThanOrEqualTo = 7,
  KorTemplateOperatorAdd = 8,
  KorTemplateOperatorSubtract = 9,
  KorTemplateOperatorMultiply = 10,
  KorTemplateOperatorDivide = 11,
  KorTemplateOperatorModulo = 12,
  KorTemplateOperatorAnd = 13,
  KorTemplateOperatorOr = 14,
};

// The results of every comparison and logical operator.
inline const Value KorYES = true;
inline const Value KorNO = false;

}  // namespace tavlo
