// What `switchboardctl path` can do, each in a file of its own, and what these have in common.
//
// Each action goes through all that was asked for; what cannot be looked at is said on standard
// error and makes the exit status 1.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Platform/DirectoryReader.h"
#include "Platform/NSException.h"
#include "tools/Invocation.h"

namespace sevrin {

struct PathOptions {
    std::string action;
    std::vector<std::string> paths;
    bool isLong = false;               // --long
    bool isAll = false;                // --all
    bool isOneVolume = false;          // --one-volume
    bool isBrowsable = false;          // --browsable
    std::string order = "name";        // of --sort
    std::string reader = "best";       // of --reader
    std::optional<std::size_t> depth;  // of --depth, levels below the first
};

[[nodiscard]] ExitStatus statItems(const Invocation& invocation, const PathOptions& options);
[[nodiscard]] ExitStatus listItems(const Invocation& invocation, const PathOptions& options);
[[nodiscard]] ExitStatus printTrees(const Invocation& invocation, const PathOptions& options);
[[nodiscard]] ExitStatus printVolumes(const Invocation& invocation, const PathOptions& options);

// What an exception of the model says: its reason, and what the system says about it.
[[nodiscard]] std::string reasonOf(const platform::NSException& exception);

// Says on standard error that `path` cannot be looked at.
void complain(std::string_view path, std::string_view reason);

// The item at a path that was asked for; nullptr when nothing is there, or when that cannot be
// told, which is then said.
[[nodiscard]] KTFileInfoPtr findItem(const std::string& path);

// Reads the list of a directory and sorts it as --sort says. Nothing when that is done, else why
// not.
[[nodiscard]] std::optional<std::string> failureOfListing(KTDirectory& directory,
                                                          const std::string& order);

// Whether a listing leaves the item out unless --all is given.
[[nodiscard]] bool isHiddenItem(const KTFileInfo& item);

// As --reader says, for as long as it lives.
class ReaderChoice {
public:
    explicit ReaderChoice(const std::string& reader);

private:
    std::optional<platform::DirectoryReaderOverride> override_;
};

}  // namespace sevrin
