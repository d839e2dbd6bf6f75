#include "Foundation/LazySequence.h"

#include "Foundation/NSKeyValueCoding.h"

namespace tavlo {

LazySequence::~LazySequence() = default;

const char* LazySequence::className() const {
  return "LazySequence";
}

bool LazySequence::findValueForKey(const NSString& key, Value& value) const {
  return findValuesForKey(*requireEnumerator(*this), key, value);
}

}  // namespace tavlo
