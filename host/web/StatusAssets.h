#pragma once

namespace kvhost {

// The files of the same names in assets/.
extern const char* const kStatusStyle;
extern const char* const kStatusScript;

}  // namespace kvhost
