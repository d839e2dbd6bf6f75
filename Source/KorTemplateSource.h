#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "Foundation/NSObject.h"
#include "Foundation/NSString.h"
#include "Foundation/Ref.h"
#include "Source/TextPlace.h"

namespace tavlo {

// A template's text and the name that its host gave it, held in common by all that was compiled from it and by the
// failures that point into it. It does not change; any number of threads may hold it.
class KorTemplateSource final : public NSObject {
 public:
  // The text may not be absent, and counts atomically from here on.
  KorTemplateSource(std::string_view name, const Ref<NSString>& text);
  // Over a copy of a text that need not be UTF-8, and so is no template.
  KorTemplateSource(std::string_view name, std::string_view text);

  // Empty where the host gave none.
  const std::string& name() const noexcept { return name_; }
  std::string_view text() const noexcept { return text_ == nullptr ? copy_ : text_->view(); }
  // Where a byte of the text stands. The first answer costs the whole text, every further one little.
  TextPlace placeOf(std::size_t offset, std::size_t length) const { return places_.placeIn(text(), offset, length); }

  bool canBeShared() const override { return true; }
  const char* className() const override { return "KorTemplateSource"; }

 private:
  std::string name_;
  Ref<NSString> text_;  // absent for a text that is copied
  std::string copy_;
  TextPlaces places_;
};

}  // namespace tavlo
