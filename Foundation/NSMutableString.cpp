#include "Foundation/NSMutableString.h"

#include "Foundation/Description.h"
#include "Foundation/NSException.h"

namespace tavlo {

void NSMutableString::appendString(const Text& text) {
  if (text.isAbsent()) NSException::raise(NSInvalidArgumentException, "An absent text cannot be appended to a string");
  text_.append(text.view());
}

void NSMutableString::describe(Description& out) const {
  out.part(text_.view());
}

}  // namespace tavlo
