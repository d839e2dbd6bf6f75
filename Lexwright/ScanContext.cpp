#include "Lexwright/ScanContext.h"

#include "Lexwright/KorRegularExpressionRule.h"

namespace tavlo {

ScanContext::ScanContext(const KorUnicharStream& stream)
    : stream_(stream), usesRecognisers_(KorRegularExpressionRule::areRecognisersEnabled()) {}

}  // namespace tavlo
