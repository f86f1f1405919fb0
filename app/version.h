// version.h - Which version of the program this is.
#pragma once

namespace app {

/// From the nearest tag: "1.2.0" at v1.2.0, "1.2.0+3.g1a2b3c4" three commits behind it.
const char* version();

}  // namespace app
