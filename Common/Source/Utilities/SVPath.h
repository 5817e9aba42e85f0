// A folder by how it is found, not by where it is: the location works out its path when it is first
// asked for, creates its folder with the attributes that belong to it, and can be archived, so that
// another process, of another user perhaps, resolves it for itself.
//
// This class names no folder by itself; SVStandardPath and SVSubPath do, and the standard
// locations are made by the class operations below. The path is worked out once:
// a folder that is moved is not followed. Without locks: share a location between threads once its
// path has been asked for.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/NSCoder.h"
#include "Platform/NSURL.h"
#include "Platform/Object.h"
#include "Platform/Value.h"

namespace sevrin {

class KTDirectory;
class KTFileInfo;
class SVPath;
using SVPathPtr = std::shared_ptr<SVPath>;

class SVPath : public platform::Object, public platform::NSCoding {
protected:
    struct Passkey {};

public:
    // Attributes of files, as Platform/NSFileManager.h names them; nothing for the system's own.
    using Attributes = std::optional<platform::Dictionary>;

    // A location without a folder.
    [[nodiscard]] static SVPathPtr initWithAttributes(Attributes attributes);

    // For the factories only.
    SVPath(Passkey, Attributes attributes);
    ~SVPath() override;

    // --- The standard locations. A new descriptor at every call.

    // The user's folders.
    [[nodiscard]] static SVPathPtr userLibraryPath();
    [[nodiscard]] static SVPathPtr userApplicationSupportPath();
    [[nodiscard]] static SVPathPtr userPreferencesPath();
    [[nodiscard]] static SVPathPtr userLogsPath();
    [[nodiscard]] static SVPathPtr userAgentConfigPath();
    [[nodiscard]] static SVPathPtr userServicesPath();

    // The suite's among them. The first one's folder is for the user alone.
    [[nodiscard]] static SVPathPtr userSVApplicationSupportPath();
    [[nodiscard]] static SVPathPtr userSVPreferencesPath();
    [[nodiscard]] static SVPathPtr userSVPreferencesPathToGroup(std::string_view name);

    // The machine's folders.
    [[nodiscard]] static SVPathPtr localApplicationPath();
    [[nodiscard]] static SVPathPtr localLibraryPath();
    [[nodiscard]] static SVPathPtr localApplicationSupportPath();
    [[nodiscard]] static SVPathPtr localDaemonConfigPath();
    [[nodiscard]] static SVPathPtr localAgentConfigPath();

    // The suite's among them: one that administrators share, and in it one for the effective user.
    [[nodiscard]] static SVPathPtr localSVApplicationSupportPath();
    [[nodiscard]] static SVPathPtr perUserLocalSVApplicationSupportPath();

    // The suite's folder for this user that is there as soon as the system has started: the user's
    // own, unless the home folder is on another volume.
    [[nodiscard]] static SVPathPtr bootSVApplicationSupportPath();

    // Whether the user's and the machine's application-support folders are on one file system; of a
    // folder whose file system cannot be told the number is 0. Told once, for the life of the
    // process.
    [[nodiscard]] static bool userAppSupportFolderOnBoot();

    // Whether the suite works with its privileged helper: the preference "SVUseAdminPrivileges" of
    // "com.sevrin.client", which is yes unless it says otherwise.
    [[nodiscard]] static bool usesPrivilegedHelper();

    // --- One location's own.

    [[nodiscard]] const Attributes& createAttributes() const { return createAttributes_; }
    void setCreateAttributes(Attributes attributes);

    // The folder's path as it is found now; nothing when there is none.
    [[nodiscard]] virtual std::optional<std::string> constructPath();

    // The same, worked out once.
    [[nodiscard]] const std::optional<std::string>& path();

    // The folder as an item, made once it is there; nullptr as long as it is not, and when
    // something else stands at the path. Raises what probing the path raises.
    [[nodiscard]] const std::shared_ptr<KTDirectory>& directory();

    // The item of that name in the folder, which may not exist; nullptr without a folder.
    [[nodiscard]] std::shared_ptr<KTFileInfo> infoForFile(std::string_view name);

    // The URL of the folder, that of directory() once it is made; nullptr without a path.
    [[nodiscard]] platform::NSURLPtr url();

    // Whether there is a folder at the path, links followed.
    [[nodiscard]] bool exists();

    // Path and URL of an item in the folder; nothing and nullptr without a path.
    [[nodiscard]] std::optional<std::string> pathToFile(std::string_view name);
    [[nodiscard]] platform::NSURLPtr urlToFile(std::string_view name);

    // Whether there is an item of that name in the folder, links followed.
    [[nodiscard]] bool containsFile(std::string_view name);

    // Makes the folder, and the locations that enclose it, with their attributes, unless it exists.
    // Logs each that it has made, the outermost first, when all are there: the log itself may be
    // kept in them. Raises SVException "Cannot create support folder" with the "Folder", after a
    // record of the circumstances in the log. Not for a location without a path.
    void create();

    // "SVSubPath.0x55d0c8a0 { path=/Library/Logs }"
    [[nodiscard]] std::string description() const override;

    // --- Archives: how the folder is found and its attributes, never its path.

    [[nodiscard]] static SVPathPtr initWithCoder(platform::NSCoder& coder);
    [[nodiscard]] static constexpr bool supportsSecureCoding() { return true; }
    void encodeWithCoder(platform::NSCoder& coder) const override;
    [[nodiscard]] static platform::Class& classObject();
    [[nodiscard]] const platform::Class& isa() const override { return classObject(); }

protected:
    // The path if it is worked out already.
    [[nodiscard]] const std::optional<std::string>& resolvedPath() const { return resolvedPath_; }

    [[nodiscard]] static Attributes decodeAttributes(platform::NSCoder& coder);

    // The folders that a call of create() has made so far, the outermost first.
    using MadeFolders = std::vector<std::string>;

    // Makes this one folder.
    void createFolder(MadeFolders& made);

    // What create() does before it logs: for a location in another, that one's first.
    virtual void createAll(MadeFolders& made);
    static void createAllOf(SVPath& location, MadeFolders& made) { location.createAll(made); }

private:
    static void logMade(const MadeFolders& made);
    [[noreturn]] void failCreating(const platform::NSErrorPtr& error);

    std::optional<std::string> resolvedPath_;
    std::shared_ptr<KTDirectory> resolvedDirectory_;
    Attributes createAttributes_;
};

}  // namespace sevrin
