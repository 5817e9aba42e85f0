// What items leave to their paths.
#include <utility>

#include "Common/Source/Utilities/KTFileInfo.h"
#include "Common/Source/Utilities/KTNonexistentFile.h"

namespace sevrin {

void KTFileInfo::moveToDirectoryWithNameOverwriting(std::optional<std::string_view> directory,
                                                    std::optional<std::string_view> name,
                                                    bool overwriting) {
    setPathObject(pathObject()->moveToDirectoryWithNameOverwriting(directory, name, overwriting));
}

void KTFileInfo::moveToOverwriting(std::string_view target, bool overwriting) {
    setPathObject(pathObject()->moveToOverwriting(target, overwriting));
}

KTFileInfoPtr KTFileInfo::copyToDirectoryWithNameOverwriting(
    std::optional<std::string_view> directory, std::optional<std::string_view> name,
    bool overwriting) const {
    return copyToDirectoryWithNameOverwritingClone(directory, name, overwriting, true);
}

KTFileInfoPtr KTFileInfo::copyToDirectoryWithNameOverwritingClone(
    std::optional<std::string_view> directory, std::optional<std::string_view> name,
    bool overwriting, bool clone) const {
    return infoForPathObject(pathObject()->copyToDirectoryWithNameOverwritingClone(
        directory, name, overwriting, clone && isRegularFile()));
}

KTFileInfoPtr KTFileInfo::copyToOverwriting(std::string_view target, bool overwriting) const {
    return copyToOverwritingClone(target, overwriting, true);
}

KTFileInfoPtr KTFileInfo::copyToOverwritingClone(std::string_view target, bool overwriting,
                                                 bool clone) const {
    return infoForPathObject(
        pathObject()->copyToOverwritingClone(target, overwriting, clone && isRegularFile()));
}

bool KTFileInfo::tryToDeleteFile() const {
    return pathObject()->tryToDeleteFile();
}

KTFileInfoPtr KTFileInfo::deleteFile() const {
    const KTPathPtr path = pathObject();
    path->deleteFile();
    return KTNonexistentFile::initWithPathObject(path);
}

KTFileInfoPtr KTFileInfo::swapWith(const KTFileInfo& other) const {
    const KTPathPtr otherPath = other.pathObject();
    pathObject()->swapWith(*otherPath);
    return infoForPathObject(otherPath);
}

}  // namespace sevrin
