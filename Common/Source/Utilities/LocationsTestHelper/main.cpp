// A process of its own for the tests of locations that need one: as somebody else, set-user-id, or
// because what they ask is told once in the life of a process.
//
//     locations-test-helper      prints the user's library folder, the suite's folder that is there
//                                after the start of the system, whether both are on one volume, and
//                                whether the privileged helper is used, each on a line
#include <unistd.h>

#include <iostream>

#include "Common/Source/Utilities/SVPath.h"

int main() {
    using sevrin::SVPath;
    std::cout << SVPath::userLibraryPath()->path().value_or("none") << "\n"
              << SVPath::bootSVApplicationSupportPath()->path().value_or("none") << "\n"
              << SVPath::userAppSupportFolderOnBoot() << "\n"
              << SVPath::usesPrivilegedHelper() << std::endl;
    // A check for leaks at the end would attach to the process, which one that is set-user-id
    // refuses.
    ::_exit(0);
}
