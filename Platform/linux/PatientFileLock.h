// A lock between processes, by a file: held by at most one at a time, and never waited for without
// end.
//
// The kernel releases the lock with the process that holds it, however that ends. A holder that
// hangs costs others their patience, not their life. The file is made for the purpose and goes with
// the lock, so nothing is left behind but by a process that is killed.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "Platform/UniqueFd.h"

namespace sevrin::platform {

class PatientFileLock {
public:
    // Takes the lock, waiting up to `patience`. Gives nothing, with errno set, when that fails:
    // EWOULDBLOCK says that another holds it still, anything else is the system's.
    [[nodiscard]] static std::optional<PatientFileLock> acquire(const std::string& path,
                                                                std::chrono::milliseconds patience);

    PatientFileLock(PatientFileLock&&) noexcept = default;
    PatientFileLock& operator=(PatientFileLock&&) = delete;
    ~PatientFileLock();

private:
    PatientFileLock(std::string path, UniqueFd file)
        : path_(std::move(path)), file_(std::move(file)) {}

    std::string path_;
    UniqueFd file_;
};

}  // namespace sevrin::platform
