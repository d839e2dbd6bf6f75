#pragma once

#include <string>

#include "Source/KorTemplate.h"

namespace tavlo::fuzz {

// All that a template's statements are: their places, their shapes and their descriptions, with addresses as numbers.
std::string textOf(KorTemplate& compiled);

// The same of the template that a text compiles to, or what was raised and where.
std::string compiledText(const std::string& text);

// What compiling has led to.
struct Compilation {
  Ref<KorTemplate> compiled;  // absent where it has failed
  std::string text;           // of the template, or of what was raised and where
  bool hasReachedLimit = false;
};

// Compiles a text, and checks what every compilation promises, whatever the text: a failure has a place within the text
// and a text of its own, and the calls that answer with failures agree with those that raise them.
Compilation compile(const std::string& text, const KorTemplateCompileOptions& options = {});

}  // namespace tavlo::fuzz
