// Tests of the standard locations.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Common/Source/Utilities/SVPath.h"
#include "Common/Source/Utilities/SVStandardPath.h"
#include "Platform/NSFileManager.h"
#include "Platform/TestPlaces.h"
#include "Platform/UniqueFd.h"

namespace sevrin {
namespace {

using platform::Dictionary;
using platform::ScopedVariable;
using platform::TestFolder;
using platform::TestPlaces;
using platform::UniqueFd;
using platform::writePropertyList;
using testing::ElementsAre;

class SVStandardLocationsTest : public testing::Test {
protected:
    std::string home(const std::string& path) const { return places_.home() + path; }
    std::string machine(const std::string& path) const { return places_.machine() + path; }

    // What a fresh process says, a line each: the library, the folder at boot, whether both are on
    // one volume, whether the helper is used. `name` is what it takes for its own path.
    static std::vector<std::string> tell(const std::string& program = LOCATIONS_TEST_HELPER,
                                         const std::optional<uid_t>& user = std::nullopt,
                                         const std::string& name = "") {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
        const UniqueFd output(ends[0]);
        UniqueFd theirs(ends[1]);
        const std::string first = name.empty() ? program : name;
        const pid_t child = ::fork();
        if (child == 0) {
            ::dup2(theirs.get(), STDOUT_FILENO);
            if (user && (::setgid(*user) != 0 || ::setuid(*user) != 0)) ::_exit(126);
            ::execl(program.c_str(), first.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        theirs.reset();
        std::string said;
        char buffer[4096];
        for (ssize_t size = 0; (size = ::read(output.get(), buffer, sizeof buffer)) > 0;)
            said.append(buffer, static_cast<std::size_t>(size));
        int status = -1;
        ::waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);

        std::vector<std::string> lines;
        std::istringstream text(said);
        for (std::string line; std::getline(text, line);)
            lines.push_back(line);
        return lines;
    }

    const TestPlaces places_;
};

TEST_F(SVStandardLocationsTest, TheUsersFoldersLieInTheUsersLibrary) {
    EXPECT_EQ(SVPath::userLibraryPath()->path(), home("/Library"));
    EXPECT_EQ(SVPath::userApplicationSupportPath()->path(), home("/Library/Application Support"));
    EXPECT_EQ(SVPath::userPreferencesPath()->path(), home("/Library/Preferences"));
    EXPECT_EQ(SVPath::userLogsPath()->path(), home("/Library/Logs"));
    EXPECT_EQ(SVPath::userAgentConfigPath()->path(), home("/Library/LaunchAgents"));
    EXPECT_EQ(SVPath::userServicesPath()->path(), home("/Library/Services"));
}

TEST_F(SVStandardLocationsTest, TheSuitesFoldersOfTheUserLieInThose) {
    EXPECT_EQ(SVPath::userSVApplicationSupportPath()->path(),
              home("/Library/Application Support/Sevrin"));
    EXPECT_EQ(SVPath::userSVPreferencesPath()->path(), home("/Library/Preferences/Sevrin"));
    EXPECT_EQ(SVPath::userSVPreferencesPathToGroup("G")->path(),
              home("/Library/Preferences/Sevrin/G"));
}

TEST_F(SVStandardLocationsTest, TheMachinesFoldersLieInTheMachinesLibrary) {
    EXPECT_EQ(SVPath::localApplicationPath()->path(), machine("/Applications"));
    EXPECT_EQ(SVPath::localLibraryPath()->path(), machine("/Library"));
    EXPECT_EQ(SVPath::localApplicationSupportPath()->path(),
              machine("/Library/Application Support"));
    EXPECT_EQ(SVPath::localDaemonConfigPath()->path(), machine("/Library/LaunchDaemons"));
    EXPECT_EQ(SVPath::localAgentConfigPath()->path(), machine("/Library/LaunchAgents"));
    EXPECT_EQ(SVPath::localSVApplicationSupportPath()->path(),
              machine("/Library/Application Support/Sevrin"));
    EXPECT_EQ(SVPath::perUserLocalSVApplicationSupportPath()->path(),
              machine("/Library/Application Support/Sevrin/" + std::to_string(::geteuid())));
}

TEST_F(SVStandardLocationsTest, ThreeFoldersHaveAttributesOfTheirOwn) {
    EXPECT_EQ(SVPath::userSVApplicationSupportPath()->createAttributes(),
              (Dictionary{{"NSFilePosixPermissions", 0700}}));
    EXPECT_EQ(SVPath::localSVApplicationSupportPath()->createAttributes(),
              (Dictionary{{"NSFilePosixPermissions", 0775},
                          {"NSFileOwnerAccountID", 0},
                          {"NSFileGroupOwnerAccountName", "admin"}}));
    EXPECT_EQ(
        SVPath::perUserLocalSVApplicationSupportPath()->createAttributes(),
        (Dictionary{{"NSFilePosixPermissions", 0700}, {"NSFileOwnerAccountID", ::geteuid()}}));
    EXPECT_EQ(SVPath::userLogsPath()->createAttributes(), std::nullopt);
}

TEST_F(SVStandardLocationsTest, EveryCallMakesANewDescriptor) {
    EXPECT_NE(SVPath::userLogsPath(), SVPath::userLogsPath());
}

TEST_F(SVStandardLocationsTest, TheUsersFolderOnTheMachineIsMadeForThatUser) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root, to become another user";
    std::filesystem::create_directories(machine("/Library/Application Support"));
    SVPathPtr location;
    ASSERT_EQ(::seteuid(501), 0);
    location = SVPath::perUserLocalSVApplicationSupportPath();
    ASSERT_EQ(::seteuid(0), 0);

    location->create();

    EXPECT_EQ(location->path(), machine("/Library/Application Support/Sevrin/501"));
    struct stat found {};
    ASSERT_EQ(::stat(location->path()->c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777, 0700U);
    EXPECT_EQ(found.st_uid, 501U);
    ASSERT_EQ(::stat(machine("/Library/Application Support/Sevrin").c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777, 0775U);
    EXPECT_EQ(found.st_uid, 0U);
}

TEST_F(SVStandardLocationsTest, WithTheHomeOnTheSystemsVolumeTheFolderAtBootIsTheUsers) {
    std::filesystem::create_directories(home("/Library/Application Support"));
    std::filesystem::create_directories(machine("/Library/Application Support"));

    EXPECT_THAT(tell(), ElementsAre(home("/Library"), home("/Library/Application Support/Sevrin"),
                                    "1", "1"));
}

TEST_F(SVStandardLocationsTest, WithTheHomeOnAnotherVolumeTheFolderAtBootIsTheMachines) {
    const TestFolder memory("/dev/shm");
    const ScopedVariable elsewhere("CFFIXED_USER_HOME", memory.path());
    std::filesystem::create_directories(memory / "Library/Application Support");
    std::filesystem::create_directories(machine("/Library/Application Support"));
    struct stat there {};
    struct stat here {};
    ASSERT_EQ(::stat(memory.path().c_str(), &there), 0);
    ASSERT_EQ(::stat(places_.machine().c_str(), &here), 0);
    if (there.st_dev == here.st_dev) GTEST_SKIP() << "/dev/shm and /tmp are one file system";

    EXPECT_THAT(tell(), ElementsAre(memory / "Library",
                                    machine("/Library/Application Support/Sevrin/" +
                                            std::to_string(::geteuid())),
                                    "0", "1"));
}

TEST_F(SVStandardLocationsTest, AFolderThatIsMissingIsOnNoVolume) {
    std::filesystem::create_directories(home("/Library/Application Support"));

    EXPECT_EQ(tell()[2], "0");
}

TEST_F(SVStandardLocationsTest, ThePreferenceSaysWhetherThePrivilegedHelperIsUsed) {
    EXPECT_TRUE(SVPath::usesPrivilegedHelper());

    writePropertyList(places_.userFile("com.sevrin.client"), "{\"SVUseAdminPrivileges\": False}");
    EXPECT_FALSE(SVPath::usesPrivilegedHelper());

    writePropertyList(places_.userFile("com.sevrin.client"), "{\"SVUseAdminPrivileges\": \"yes\"}");
    EXPECT_TRUE(SVPath::usesPrivilegedHelper());
}

TEST_F(SVStandardLocationsTest, OnlyAProgramWithTheBitWorksForAnotherHome) {
    const std::string folder = home("/Library/Application Support/Sevrin");
    std::filesystem::create_directories(folder);
    const std::string tool = places_.folder().write("home/Library/Application Support/Sevrin/tool");

    EXPECT_EQ(SVStandardPath::homeForProgram(tool), std::nullopt);
    ASSERT_EQ(::chmod(tool.c_str(), 04755), 0);
    EXPECT_EQ(SVStandardPath::homeForProgram(tool), places_.home());
    EXPECT_EQ(SVStandardPath::homeForProgram(folder + "/missing"), std::nullopt);
    std::filesystem::create_symlink("tool", folder + "/link");
    EXPECT_EQ(SVStandardPath::homeForProgram(folder + "/link"), std::nullopt);
}

TEST_F(SVStandardLocationsTest, AProgramElsewhereWorksForTheFolderThatItIsIn) {
    const std::string tool = places_.folder().write("home/tool");
    ASSERT_EQ(::chmod(tool.c_str(), 04755), 0);

    EXPECT_EQ(SVStandardPath::homeForProgram(tool), places_.home());
}

TEST_F(SVStandardLocationsTest, TheRootOfTheFileSystemIsNobodysHome) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root, to make a folder at the root";
    const TestFolder atRoot("");
    std::filesystem::create_directories(atRoot / "b/Sevrin");
    const std::string tool = atRoot.write("b/Sevrin/tool");
    ASSERT_EQ(::chmod(tool.c_str(), 04755), 0);

    EXPECT_EQ(SVStandardPath::homeForProgram(tool), std::nullopt);
}

// A tool in the support folder of one user's home, owned by that user, run by another.
class SetUserIdToolTest : public SVStandardLocationsTest {
protected:
    static constexpr uid_t kOwner = 65533;
    static constexpr uid_t kCaller = 65532;

    void SetUp() override {
        if (::geteuid() != 0) GTEST_SKIP() << "needs root, to make set-user-id programs";
        std::filesystem::permissions(places_.folder().path(), std::filesystem::perms(0755));
        std::filesystem::create_directories(owner_ + "/Library/Application Support/Sevrin");
        std::filesystem::copy(LOCATIONS_TEST_HELPER, tool_);
        ASSERT_EQ(::chown(tool_.c_str(), kOwner, kOwner), 0);
    }

    std::string libraryOf(mode_t mode) const {
        EXPECT_EQ(::chmod(tool_.c_str(), mode), 0);
        return tell(tool_, kCaller).at(0);
    }

    const std::string owner_ = places_.folder() / "owner";
    const std::string tool_ = owner_ + "/Library/Application Support/Sevrin/tool";
};

TEST_F(SetUserIdToolTest, WithTheBitTheToolWorksInItsOwnersHome) {
    EXPECT_EQ(libraryOf(04755), owner_ + "/Library");
}

TEST_F(SetUserIdToolTest, WithoutTheBitTheToolWorksInItsCallersHome) {
    EXPECT_EQ(libraryOf(0755), places_.home() + "/Library");
}

// The caller chooses the first argument, and names another program with the bit.
TEST_F(SetUserIdToolTest, AFirstArgumentThatIsNotTheProgramIsNotBelieved) {
    ASSERT_EQ(::chmod(tool_.c_str(), 04755), 0);
    const std::string other = places_.folder() / "home/other";
    std::filesystem::copy(LOCATIONS_TEST_HELPER, other);
    ASSERT_EQ(::chmod(other.c_str(), 04755), 0);

    EXPECT_EQ(tell(tool_, kCaller, other).at(0), "/Library");
}

}  // namespace
}  // namespace sevrin
