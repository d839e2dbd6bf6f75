#pragma once

#include <string>

#include "Foundation/Text.h"
#include "Source/KorTemplate.h"
#include "Source/KorTemplateData.h"
#include "Source/KorTemplateResult.h"

namespace tavlo {

// A template's text rendered with the data as its globals, in an environment of its own: compiled, run and forgotten.
// There are no functions but those that the template defines; diagnostics go to standard error. Raises what compiling
// and executing raise.
std::string render(const Text& templateString, const KorTemplateData& data = {});
// The same for a template that is compiled already.
std::string render(const Ref<KorTemplate>& compiled, const KorTemplateData& data = {});

// The same with an answer in place of an exception of the family of `std::exception`.
KorTemplateResult<std::string> tryRender(const Text& templateString, const KorTemplateData& data = {});
KorTemplateResult<std::string> tryRender(const Ref<KorTemplate>& compiled, const KorTemplateData& data = {});

}  // namespace tavlo
