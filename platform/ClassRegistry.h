// Makes sure every class object of the library exists (and so is registered by
// name) before anything looks a class up by name: a static library drops
// object files that only register themselves.
#pragma once

namespace nyb {

// Idempotent and thread-safe; called by NYBClass::classNamed().
void registerLibraryClasses();

}  // namespace nyb
