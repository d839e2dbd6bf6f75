#include "Foundation/LazyCollections.h"

namespace tavlo {

SingleSequence::SingleSequence(Ref<NSEnumerator> elements) : elements_(std::move(elements)) {}

Ref<NSEnumerator> SingleSequence::objectEnumerator() const {
  return elements_;
}

}  // namespace tavlo
