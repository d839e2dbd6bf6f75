#pragma once

// What programs have as values, and back: the trait, and all its specialisations.

#include "Foundation/EnumNames.h"                   // IWYU pragma: export
#include "Foundation/ValueConversion+Containers.h"  // IWYU pragma: export
#include "Foundation/ValueConversion+Hosts.h"       // IWYU pragma: export
#include "Foundation/ValueConversion+Scalars.h"     // IWYU pragma: export
#include "Foundation/ValueConversion+Times.h"       // IWYU pragma: export
#include "Foundation/ValueConversionTrait.h"        // IWYU pragma: export
