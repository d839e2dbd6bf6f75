#pragma once

#include "Source/KorTemplateEnvironment.h"
#include "Tool/RenderOptions.h"

namespace tavlo {

// Defines the globals that the options ask for: the members of the data files in their order, then what the command
// line itself defines, so that of several definitions of a name the last one stands. Throws `Failure` for data that
// cannot be read or used.
void defineGlobals(KorTemplateEnvironment& environment, const RenderOptions& options);

}  // namespace tavlo
