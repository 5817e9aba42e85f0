// By dup3, which also keeps the number from programs that another thread starts at that moment.
#include "Platform/DescriptorNumber.h"

#include <fcntl.h>
#include <unistd.h>

namespace sevrin::platform {

bool moveDescriptorToNumber(UniqueFd from, int number) noexcept {
    return ::dup3(from.get(), number, O_CLOEXEC) >= 0;
}

UniqueFd duplicateDescriptor(int number) noexcept {
    return UniqueFd(::fcntl(number, F_DUPFD_CLOEXEC, 0));
}

UniqueFd openNothing() noexcept {
    return UniqueFd(::open("/", O_PATH | O_CLOEXEC));
}

}  // namespace sevrin::platform
