// What a file manager does with whole items: exists, moves, copies, removes, describes, makes.
//
// Every operation that can fail gives the POSIX error with the path of the item that it failed at,
// which may lie deep in a tree, or nullptr. Paths are bytes of any length and are taken relative to
// the current folder unless they begin with "/". A link that is the last component is itself the
// item, except where it says "followed". What is done to a tree is done relative to open folders:
// somebody who swaps a folder for a link meanwhile does not lead it out of the tree. On any thread.
#pragma once

#include <string_view>
#include <variant>

#include "Platform/NSError.h"
#include "Platform/Value.h"

namespace sevrin::platform {

// Keys and values of an item's attributes, as the platform spells them. Those with a star can be
// set.
inline constexpr std::string_view NSFileType = "NSFileType";
inline constexpr std::string_view NSFileTypeDirectory = "NSFileTypeDirectory";
inline constexpr std::string_view NSFileTypeRegular = "NSFileTypeRegular";
inline constexpr std::string_view NSFileTypeSymbolicLink = "NSFileTypeSymbolicLink";
inline constexpr std::string_view NSFileTypeSocket = "NSFileTypeSocket";
inline constexpr std::string_view NSFileTypeCharacterSpecial = "NSFileTypeCharacterSpecial";
inline constexpr std::string_view NSFileTypeBlockSpecial = "NSFileTypeBlockSpecial";
inline constexpr std::string_view NSFileTypeUnknown = "NSFileTypeUnknown";            // pipes too
inline constexpr std::string_view NSFileSize = "NSFileSize";                          // bytes
inline constexpr std::string_view NSFileModificationDate = "NSFileModificationDate";  // *
inline constexpr std::string_view NSFileCreationDate = "NSFileCreationDate";  // where it is known
inline constexpr std::string_view NSFileReferenceCount = "NSFileReferenceCount";
inline constexpr std::string_view NSFileDeviceIdentifier = "NSFileDeviceIdentifier";
inline constexpr std::string_view NSFilePosixPermissions = "NSFilePosixPermissions";  // * 12 bits
inline constexpr std::string_view NSFileOwnerAccountID = "NSFileOwnerAccountID";      // *
inline constexpr std::string_view NSFileOwnerAccountName = "NSFileOwnerAccountName";  // *
inline constexpr std::string_view NSFileGroupOwnerAccountID = "NSFileGroupOwnerAccountID";  // *
// * Of the name "admin" the first of the groups admin, sudo, wheel and root that there is.
inline constexpr std::string_view NSFileGroupOwnerAccountName = "NSFileGroupOwnerAccountName";
inline constexpr std::string_view NSFileSystemNumber = "NSFileSystemNumber";
inline constexpr std::string_view NSFileSystemFileNumber = "NSFileSystemFileNumber";
inline constexpr std::string_view NSFileImmutable = "NSFileImmutable";    // only when it is so
inline constexpr std::string_view NSFileAppendOnly = "NSFileAppendOnly";  // only when it is so
// Of a file system: sizes in bytes, counts of files.
inline constexpr std::string_view NSFileSystemSize = "NSFileSystemSize";
inline constexpr std::string_view NSFileSystemFreeSize = "NSFileSystemFreeSize";
inline constexpr std::string_view NSFileSystemNodes = "NSFileSystemNodes";
inline constexpr std::string_view NSFileSystemFreeNodes = "NSFileSystemFreeNodes";

class NSFileManager {
public:
    // The one that everybody shares. Has no state.
    [[nodiscard]] static const NSFileManager& defaultManager() noexcept;

    // Whether there is an item, followed: a dangling link does not exist.
    [[nodiscard]] bool fileExistsAtPath(std::string_view path) const;

    // The same; `isDirectory` is set when there is, to whether it is a folder.
    [[nodiscard]] bool fileExistsAtPathIsDirectory(std::string_view path, bool& isDirectory) const;

    // Moves an item to where nothing may be (EEXIST). To another volume it is copied, with all that
    // it has (ENOTSUP when the volume cannot hold a user's extended attributes or access control
    // lists), written to the disk, and only then removed. When removing fails before anything is
    // removed, the copy goes again; after that both stay, and the copy is complete. What came into
    // the source, or was written there, after it had been copied is not removed: EBUSY. A name may
    // change to other letters where the file system does not tell small ones from capitals.
    [[nodiscard]] NSErrorPtr moveItemAtPathToPath(std::string_view from, std::string_view to) const;

    // Copies an item, with all that is in it, to where nothing may be. The copy shares storage with
    // the source where the file system can. Modes, times, extended attributes, access control
    // lists, holes and several names of a file within the tree are kept, owners as root; of these,
    // what the volume cannot hold is left out. What a failed copy made is removed.
    [[nodiscard]] NSErrorPtr copyItemAtPathToPath(std::string_view from, std::string_view to) const;

    // Removes an item, with all that is in it. Stops at the first failure. EBUSY for the place of a
    // mounted volume, also within a tree; such a volume is not touched.
    [[nodiscard]] NSErrorPtr removeItemAtPath(std::string_view path) const;

    // What is known about an item, under the keys above; a name only when the number has one.
    [[nodiscard]] std::variant<Dictionary, NSErrorPtr> attributesOfItemAtPath(
        std::string_view path) const;

    // What is known about the file system that holds the item, followed.
    [[nodiscard]] std::variant<Dictionary, NSErrorPtr> attributesOfFileSystemForPath(
        std::string_view path) const;

    // Gives an item, followed, the attributes that can be set; EINVAL for a value of the wrong kind
    // or range and for names that nobody has, ENOTSUP for a creation date. Keys of what cannot be
    // set are passed over. A number goes before a name.
    [[nodiscard]] NSErrorPtr setAttributesOfItemAtPath(const Dictionary& attributes,
                                                       std::string_view path) const;

    // Makes a folder. With `intermediates` also those above it that are missing, with the same
    // attributes, and a folder that is there already is fine; without, EEXIST. Without permissions
    // among the attributes it has those that the process gives new folders. When the attributes
    // cannot be set, the folder is not left behind.
    [[nodiscard]] NSErrorPtr createDirectoryAtPath(std::string_view path, bool intermediates,
                                                   const Dictionary& attributes = {}) const;

    // Makes a file of the given bytes, replacing the content of a file that is there, followed.
    [[nodiscard]] NSErrorPtr createFileAtPath(std::string_view path, std::string_view contents,
                                              const Dictionary& attributes = {}) const;
};

}  // namespace sevrin::platform
