#include "Source/KorTemplatePlace.h"

#include "Foundation/Lasting.h"
#include "Source/PrintableText.h"
#include "Source/SourceExcerpt.h"

namespace tavlo {

const std::string& KorTemplatePlace::templateName() const noexcept {
  static const Lasting<std::string> none;
  return source_ == nullptr ? none.object : source_->name();
}

TextPlace KorTemplatePlace::inText() const {
  if (!isKnown()) return {0, 0, 0, 0};
  return source_->placeOf(range_.offset, range_.length);
}

std::string KorTemplatePlace::description() const {
  std::string text = templateName().empty() ? "template" : printable(templateName());
  if (!isKnown()) return text;
  const TextPlace place = inText();
  return text + ':' + std::to_string(place.line) + ':' + std::to_string(place.column);
}

std::string KorTemplatePlace::excerpt() const {
  return isKnown() ? excerptAround(source_->text(), range_.offset) : std::string();
}

}  // namespace tavlo
