#pragma once

#include "Foundation/NSDictionary.h"
#include "Source/KorTemplate.h"

namespace tavlo::fuzz {

// Runs a template with the members of the data as its globals, and a few functions and objects of a host, several
// times over, and checks what holds for every template: however it ends, the scopes are as they were; running it again,
// in the same environment and in another one, with another stream and with an observer, writes the same; and what it
// writes begins with what its first statements write alone. Does nothing for a template that might run for long.
void checkRendering(const Ref<KorTemplate>& compiled, const Ref<NSDictionary>& data);

}  // namespace tavlo::fuzz
