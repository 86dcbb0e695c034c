// Texts of the library's codes and its version.
#pragma once

#include <string>

namespace zorsock {

// The text of an error code the library knows (1, 0x20-0x22, 0x30-0x33);
// nullptr for any other code.
const char* CodeText(int code);

// The library version, "major.minor.patch", and its "major.minor" short form.
const char* LibraryVersion();
std::string ShortVersion();

}  // namespace zorsock
