#include "Source/KorTemplateSource.h"

#include "Foundation/NSException.h"

namespace tavlo {

KorTemplateSource::KorTemplateSource(std::string name, const Ref<NSString>& text)
    : NSObject(ObjectKind::Other, Counting::Atomic), name_(std::move(name)), text_(text) {
  requireParameter(text != nullptr, "text != nil");
  text->markShared();
}

KorTemplateSource::KorTemplateSource(std::string name, std::string_view text)
    : NSObject(ObjectKind::Other, Counting::Atomic), name_(std::move(name)), copy_(text) {}

}  // namespace tavlo
