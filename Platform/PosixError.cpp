// Making errors of errno.
#include "Platform/PosixError.h"

namespace sevrin::platform {

NSErrorPtr posixError(int number, std::string_view path) {
    return NSError::errorWithDomainCodeUserInfo(NSPOSIXErrorDomain, number,
                                                Dictionary{{NSFilePathErrorKey, path}});
}

}  // namespace sevrin::platform
