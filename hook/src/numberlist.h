// The number-list texts the hooks keep in the kernel parameter and in
// properties ("1,-2"): written and read here only, by the library and by the
// tools that show its records, so that both read a text the same way.
#pragma once

#include <string>
#include <vector>

namespace CamX {

// Decimal values joined by "," ("1,-2"); an empty list gives "".
std::string ArrayToString(const std::vector<int>& values);
std::string ArrayToString64(const std::vector<long>& values);

// Reads signed 64-bit numbers separated by single "," (leading blanks of a
// number are skipped) and stops at the first text that is not a number:
// "1,,2" gives {1}. The int argument is not used.
std::vector<long> StringToArray64(const std::string& text, int);

}  // namespace CamX
