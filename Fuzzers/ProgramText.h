#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <string>

namespace tavlo::fuzz {

// The data that the programs are written for, as JSON.
extern const char* const kProgramData;

// A template that compiles, whose parts the input chooses. It reads the variables of kProgramData, its own, and the
// functions of Fuzzers/Rendering.h. An input that is used up makes the shortest choices.
std::string programText(FuzzedDataProvider& input);

// The text with a few pieces of the language taken out, put twice, or put in where the input says.
std::string mutatedText(FuzzedDataProvider& input, std::string text);

}  // namespace tavlo::fuzz
