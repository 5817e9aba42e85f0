// What the actions of `switchboardctl path` have in common: items found, folders read, failures
// said.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Common/Source/Utilities/KTRegularFile.h"
#include "Platform/UniqueFd.h"
#include "tools/Verbs/PathActions.h"

namespace sevrin {

using platform::DirectoryReader;
using platform::NSException;

namespace {

// What is sorted by; what cannot be told of an item counts as nothing.
std::int64_t sizeOf(const KTFileInfo& item) try {
    const auto* const file = dynamic_cast<const KTRegularFile*>(&item);
    return file == nullptr ? 0 : file->logicalSize();
} catch (const NSException&) {
    return 0;
}

timespec timeOf(const KTFileInfo& item) try {
    return item.modifiedTimeSpec();
} catch (const NSException&) {
    return {};
}

// The largest first.
int compareSizes(const KTFileInfo& left, const KTFileInfo& right) {
    const std::int64_t leftSize = sizeOf(left);
    const std::int64_t rightSize = sizeOf(right);
    return leftSize < rightSize ? 1 : leftSize > rightSize ? -1 : 0;
}

// The newest first.
int compareTimes(const KTFileInfo& left, const KTFileInfo& right) {
    const timespec leftTime = timeOf(left);
    const timespec rightTime = timeOf(right);
    const auto before = std::pair(leftTime.tv_sec, leftTime.tv_nsec);
    const auto after = std::pair(rightTime.tv_sec, rightTime.tv_nsec);
    return before < after ? 1 : before > after ? -1 : 0;
}

// Sorts are stable, so that the name decides what size and time leave open.
void readInOrder(KTDirectory& directory, const std::string& order) {
    directory.lazyDirectoryRead();
    if (!directory.isListed() || order == "none") return;
    directory.sort();
    if (order == "size") directory.resortUsing(&compareSizes);
    if (order == "modified") directory.resortUsing(&compareTimes);
}

// Why the folder cannot be opened; nothing when it can, now.
std::optional<std::string> failureOfOpening(const KTDirectory& directory) {
    const platform::UniqueFd folder(
        ::open(directory.cPath(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (folder) return std::nullopt;
    return std::strerror(errno);
}

}  // namespace

std::string reasonOf(const NSException& exception) {
    std::string reason = exception.reason().value_or(exception.name());
    const platform::Value* const number = exception.userInfo().find("POSIXErr");
    if (number != nullptr && number->ifSigned())
        reason.append(": ").append(std::strerror(static_cast<int>(*number->ifSigned())));
    return reason;
}

void complain(std::string_view path, std::string_view reason) {
    const Failure failure(ExitStatus::No, std::string(path), std::string(reason));
    writeNote(messageOf(failure, "path") + '\n');
}

KTFileInfoPtr findItem(const std::string& path) try {
    KTFileInfoPtr item = KTFileInfo::infoForPath(path);
    if (!item) complain(path, "it is of no kind that the model knows");
    if (!item || item->exists()) return item;
    complain(path, "nothing is there");
    return nullptr;
} catch (const NSException& exception) {
    complain(path, reasonOf(exception));
    return nullptr;
}

std::optional<std::string> failureOfListing(KTDirectory& directory, const std::string& order) try {
    readInOrder(directory, order);
    if (directory.isListed()) return std::nullopt;
    if (auto failure = failureOfOpening(directory)) return failure;
    readInOrder(directory, order);
    if (directory.isListed()) return std::nullopt;
    return failureOfOpening(directory).value_or("it comes and goes");
} catch (const NSException& exception) {
    return reasonOf(exception);
}

bool isHiddenItem(const KTFileInfo& item) {
    return *item.cName() == '.';
}

ReaderChoice::ReaderChoice(const std::string& reader) {
    if (reader == "bulk") override_.emplace(DirectoryReader::Bulk);
    if (reader == "attribute") override_.emplace(DirectoryReader::Attribute);
    if (reader == "plain") override_.emplace(DirectoryReader::Plain);
}

}  // namespace sevrin
