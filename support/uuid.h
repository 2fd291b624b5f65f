// Fresh identifiers. Thread-safe.
#pragma once

#include <string>

namespace ac {

// A random (version 4) UUID in its upper-case 8-4-4-4-12 form.
std::string newUUIDString();

}  // namespace ac
