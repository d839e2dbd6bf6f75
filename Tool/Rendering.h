#pragma once

#include "Tool/Diagnostics.h"
#include "Tool/RenderOptions.h"

namespace tavlo {

// Renders a template as the options ask for. Throws `Failure` when that fails, `ReaderWentAway` when nobody reads the
// text any more; a file that was to be replaced is then as it was.
void render(const RenderOptions& options, const Diagnostics& diagnostics);

}  // namespace tavlo
