// Ends long chains of objects without recursion.
//
// An exception may have a cause, which has a cause ... in an archive, a hundred thousand times.
// Were each to end the next from its destructor, the stack would not last. Per thread; nothing here
// throws.
#pragma once

#include "Platform/Value.h"

namespace sevrin::platform {

// Lets go of what an object that is ending held. Within another such call on this thread, that is
// done before the outermost of them returns instead.
void releaseWithoutRecursion(Dictionary contents) noexcept;
void releaseWithoutRecursion(Value contents) noexcept;

}  // namespace sevrin::platform
