#pragma once

#include <cstdint>

#include "Foundation/NSException.h"
#include "Foundation/StringFormat.h"
#include "Foundation/Text.h"
#include "Source/SourceRange.h"

namespace tavlo {

inline constexpr const char* KorTemplateSyntaxErrorExceptionName = "KorTemplateSyntaxErrorException";

// Text that is no template.
class [[gnu::visibility("default")]] KorTemplateSyntaxErrorException : public NSException {
 public:
  // The exception for a message formatted from `format`, which may not be absent; the caller raises it.
  template <class... Arguments>
  static KorTemplateSyntaxErrorException exceptionOnLine(std::int32_t line, const Text& format,
                                                         const Arguments&... arguments) {
    requireParameter(!format.isAbsent(), "format != nil");
    return {line, stringWithFormat(format.view(), arguments...)};
  }

  KorTemplateSyntaxErrorException(const KorTemplateSyntaxErrorException&) noexcept = default;
  KorTemplateSyntaxErrorException& operator=(const KorTemplateSyntaxErrorException&) noexcept = default;
  ~KorTemplateSyntaxErrorException() override;

  // The number in the reason. It is counted from where the named token stands in its block, and from the block that is
  // being read then: see place() for where the error truly is.
  std::int32_t line() const noexcept {
    return line_;
  }

  // Where the named token stands in the template's text.
  SourceRange place() const noexcept {
    return place_;
  }
  void setPlace(SourceRange place) noexcept {
    place_ = place;
  }

 private:
  KorTemplateSyntaxErrorException(std::int32_t line, const std::string& message);

  std::int32_t line_;
  SourceRange place_;
};

}  // namespace tavlo
