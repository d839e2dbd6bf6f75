#include "Source/KorTemplateReturnIndication.h"

namespace tavlo {

KorTemplateReturnIndication::KorTemplateReturnIndication(const Value& returnValue)
    : NSException("KorTemplateReturnIndication"), returnValue_(returnValue) {}

KorTemplateReturnIndication::~KorTemplateReturnIndication() = default;

KorTemplateReturnIndication KorTemplateReturnIndication::indicationWithReturnValue(const Value& returnValue) {
  requireParameter(!returnValue.isAbsent(), "returnValue != nil");
  return KorTemplateReturnIndication(returnValue);
}

}  // namespace tavlo
