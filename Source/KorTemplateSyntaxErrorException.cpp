#include "Source/KorTemplateSyntaxErrorException.h"

namespace tavlo {

KorTemplateSyntaxErrorException::KorTemplateSyntaxErrorException(std::int32_t line, const std::string& message)
    : NSException(KorTemplateSyntaxErrorExceptionName, stringWithFormat("Syntax error (line %d): %@", line, message)),
      line_(line) {}

KorTemplateSyntaxErrorException::~KorTemplateSyntaxErrorException() = default;

}  // namespace tavlo
