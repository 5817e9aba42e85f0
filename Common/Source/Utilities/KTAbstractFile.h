// What a walk through a listing needs to know of its items, and what it needs of a directory,
// whatever stands behind them.
#pragma once

#include <memory>
#include <string_view>

#include "Common/Source/Utilities/KTAbstractPath.h"

namespace sevrin {

class KTAbstractDirectory;
class KTAbstractFile;
using KTAbstractFilePtr = std::shared_ptr<KTAbstractFile>;
using KTAbstractDirectoryPtr = std::shared_ptr<KTAbstractDirectory>;

class KTAbstractFile : public KTAbstractPath {
public:
    // The directory that lists this, as long as somebody keeps it; else nullptr.
    [[nodiscard]] virtual KTAbstractDirectoryPtr abstractParent() const = 0;

    // What follows in the listing: anything, a file or link, a file, a directory; nullptr at the
    // end.
    [[nodiscard]] virtual KTAbstractFilePtr nextAbstractObj() const = 0;
    [[nodiscard]] virtual KTAbstractFilePtr nextAbstractContentFile() const = 0;
    [[nodiscard]] virtual KTAbstractFilePtr nextAbstractRegularFile() const = 0;
    [[nodiscard]] virtual KTAbstractDirectoryPtr nextAbstractDirectory() const = 0;
};

class KTAbstractDirectory {
public:
    // The first of each kind; nullptr when there is none.
    [[nodiscard]] virtual KTAbstractFilePtr firstAbstractObject() = 0;
    [[nodiscard]] virtual KTAbstractFilePtr firstAbstractContentFile() = 0;
    [[nodiscard]] virtual KTAbstractFilePtr firstAbstractRegularFile() = 0;
    [[nodiscard]] virtual KTAbstractDirectoryPtr firstAbstractDirectory() = 0;

    // The one of that name; nullptr when there is none, or when it is no directory.
    [[nodiscard]] virtual KTAbstractFilePtr abstractObjectMatchingCName(const char* name) = 0;
    [[nodiscard]] virtual KTAbstractFilePtr abstractObjectMatchingName(std::string_view name) = 0;
    [[nodiscard]] virtual KTAbstractDirectoryPtr abstractSubdirectoryMatchingCName(
        const char* name) = 0;
    [[nodiscard]] virtual KTAbstractDirectoryPtr abstractSubdirectoryMatchingName(
        std::string_view name) = 0;

protected:
    ~KTAbstractDirectory() = default;
};

}  // namespace sevrin
