#include "Source/KorTemplateSource.h"

#include "Foundation/NSException.h"
#include "Foundation/Utf8.h"

namespace tavlo {

KorTemplateSource::KorTemplateSource(std::string_view name, const Ref<NSString>& text)
    : NSObject(ObjectKind::Other, Counting::Atomic), name_(asValidUTF8(name)), text_(text) {
  requireParameter(text != nullptr, "text != nil");
  text->markShared();
}

KorTemplateSource::KorTemplateSource(std::string_view name, std::string_view text)
    : NSObject(ObjectKind::Other, Counting::Atomic), name_(asValidUTF8(name)), copy_(text) {}

}  // namespace tavlo
