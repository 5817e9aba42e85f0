// The kernel's link to the program's file leads to it whatever its name is now.
#include "Platform/ProgramFile.h"

#include <sys/stat.h>

namespace sevrin::platform {

bool isRunningProgram(const std::string& path) noexcept {
    struct stat named {};
    struct stat running {};
    return ::lstat(path.c_str(), &named) == 0 && ::stat("/proc/self/exe", &running) == 0 &&
           named.st_dev == running.st_dev && named.st_ino == running.st_ino;
}

}  // namespace sevrin::platform
