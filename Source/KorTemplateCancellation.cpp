#include "Source/KorTemplateCancellation.h"

namespace tavlo {

const char* KorTemplateCancellation::className() const {
  return "KorTemplateCancellation";
}

}  // namespace tavlo
