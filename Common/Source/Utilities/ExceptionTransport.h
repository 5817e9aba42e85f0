// What can be done with any exception beyond catching it: narrowing it to the suite's own, passing
// it on as bytes, and recording it instead of raising it.
//
// The bytes are a keyed archive with the exception as its root object: class, name, reason and user
// info, so that an SVException comes back as one with all its details. Where it was raised stays
// behind. Any thread may use these, with one exception on one thread at a time.
#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <string_view>

#include "Common/Source/Utilities/SVException.h"
#include "Platform/NSException.h"

namespace sevrin {

// Whether raiseOrPersist() records failures instead of raising them. False unless a process that
// would rather go on than stop sets it, once and before anything can fail.
extern std::atomic<bool> SVPersistFailures;

// The same exception as what it is, when it is an SVException.
[[nodiscard]] std::optional<SVException> asSVException(const platform::NSException& exception);

// The same, when it is soft besides.
[[nodiscard]] std::optional<SVException> asSoftException(const platform::NSException& exception);

// The exception as bytes; nothing when one of its details cannot be archived.
[[nodiscard]] std::optional<std::string> dataForException(const platform::NSException& exception);

// The exception that dataForException() made the bytes of, whoever did; nothing for no bytes, and,
// with a line in the log, for an archive of something else. Raises what the unarchiver raises for
// bytes that are no archive.
[[nodiscard]] std::optional<platform::NSException> exceptionFromData(
    std::optional<std::string_view> data);

// Raises the exception; or, while SVPersistFailures is set, logs it under the one heading "Ignored
// failures" and returns, as if what failed had not.
void raiseOrPersist(const platform::NSException& exception);

}  // namespace sevrin
