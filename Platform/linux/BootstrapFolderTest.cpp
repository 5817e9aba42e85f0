// Unit tests of the bootstrap folder: where it is looked for, and which one is trusted.
#include "Platform/linux/BootstrapFolder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "Platform/linux/Bootstrap.h"
#include "Platform/linux/BootstrapTestSupport.h"
#include "Platform/linux/TestProcess.h"

namespace sevrin::platform::bootstrap {
namespace {

using testing::HasSubstr;

using Domain = NSXPCConnection::Domain;

constexpr uid_t kSomebodyElse = 65'534;

// Whose folders of either domain this process may make: root's own are the system's too.
class BootstrapFolderTest : public testing::Test {
protected:
    // Why `path` is not used for listening; empty when it is.
    std::string whyNotListening(Domain domain = Domain::User) {
        const auto opened = openFolderToListen(domain);
        const auto* why = std::get_if<std::string>(&opened);
        return why ? *why : "";
    }

    std::optional<XPCError> whyNotConnecting(Domain domain = Domain::User) {
        const auto opened = openFolderToConnect(domain);
        const auto* error = std::get_if<XPCError>(&opened);
        return error ? std::optional(*error) : std::nullopt;
    }

    mode_t modeOfFolder() {
        struct stat status {};
        EXPECT_EQ(::lstat(path_.c_str(), &status), 0);
        return status.st_mode & 07777;
    }

    TestFolder parent_;
    const std::string path_ = parent_.path() + "/names";
    EnvironmentChange moved_{"SEVRIN_BOOTSTRAP_DIR", path_};
};

TEST_F(BootstrapFolderTest, TheVariableOfTestsMovesBothDomains) {
    EXPECT_EQ(folderPath(Domain::User), path_);
    EXPECT_EQ(folderPath(Domain::System), path_);
}

TEST_F(BootstrapFolderTest, AnEmptyVariableIsNone) {
    const EnvironmentChange unmoved("SEVRIN_BOOTSTRAP_DIR", "");
    const EnvironmentChange runtime("XDG_RUNTIME_DIR", parent_.path());

    EXPECT_EQ(folderPath(Domain::System), "/run/sevrin");
    EXPECT_EQ(folderPath(Domain::User), parent_.path() + "/sevrin");
}

TEST_F(BootstrapFolderTest, WithoutARuntimeFolderItIsTheUsersOwnUnderRunOrElseUnderTmp) {
    const EnvironmentChange unmoved("SEVRIN_BOOTSTRAP_DIR", std::nullopt);
    const EnvironmentChange noRuntime("XDG_RUNTIME_DIR", std::nullopt);
    const std::string user = std::to_string(::geteuid());
    struct stat status {};
    const bool hasFolder = ::lstat(("/run/user/" + user).c_str(), &status) == 0 &&
                           S_ISDIR(status.st_mode) && status.st_uid == ::geteuid();

    EXPECT_EQ(folderPath(Domain::User),
              hasFolder ? "/run/user/" + user + "/sevrin" : "/tmp/sevrin-" + user);
}

TEST_F(BootstrapFolderTest, ARuntimeFolderThatIsNoAbsolutePathIsNone) {
    const EnvironmentChange unmoved("SEVRIN_BOOTSTRAP_DIR", std::nullopt);
    const EnvironmentChange noRuntime("XDG_RUNTIME_DIR", std::nullopt);
    const std::string folder = folderPath(Domain::User);
    const std::string parent = privateParentPath();

    for (const char* const relative : {"", "run", "./run", "..", "~/run"}) {
        const EnvironmentChange runtime("XDG_RUNTIME_DIR", relative);
        EXPECT_EQ(folderPath(Domain::User), folder) << relative;
        EXPECT_EQ(privateParentPath(), parent) << relative;
    }
}

TEST_F(BootstrapFolderTest, PrivateFoldersAreMadeInTheRuntimeFolderOnlyIfThatIsOurs) {
    const EnvironmentChange runtime("XDG_RUNTIME_DIR", parent_.path());
    EXPECT_EQ(privateParentPath(), parent_.path());

    const EnvironmentChange missing("XDG_RUNTIME_DIR", parent_.path() + "/missing");
    EXPECT_EQ(privateParentPath(), "/tmp/");
}

TEST_F(BootstrapFolderTest, AMissingFolderIsMadeWhateverTheUmask) {
    const mode_t umaskBefore = ::umask(0077);
    EXPECT_EQ(whyNotListening(), "");
    EXPECT_EQ(modeOfFolder(), 0700u);
    ASSERT_EQ(::rmdir(path_.c_str()), 0);

    ::umask(0000);
    EXPECT_EQ(whyNotListening(), "");
    EXPECT_EQ(modeOfFolder(), 0700u);
    ::umask(umaskBefore);
}

TEST_F(BootstrapFolderTest, TheSystemsFolderMayBeEnteredByAll) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root makes the system's folder";
    const mode_t umaskBefore = ::umask(0077);
    EXPECT_EQ(whyNotListening(Domain::System), "");
    ::umask(umaskBefore);

    EXPECT_EQ(modeOfFolder(), 0755u);
    EXPECT_FALSE(whyNotConnecting(Domain::System));
}

TEST_F(BootstrapFolderTest, NothingIsMadeForWhoeverOnlyConnects) {
    const auto error = whyNotConnecting();

    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, XPCError::Code::NoService);
    EXPECT_THAT(error->description, HasSubstr(path_));
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(BootstrapFolderTest, AFolderThatOthersMayWriteToIsNotTrusted) {
    for (const mode_t mode : {0777u, 0770u, 0702u}) {
        ASSERT_TRUE(::mkdir(path_.c_str(), 0700) == 0 || errno == EEXIST);
        ASSERT_EQ(::chmod(path_.c_str(), mode), 0);

        EXPECT_THAT(whyNotListening(), HasSubstr("is writable by others"));
        const auto error = whyNotConnecting();
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code, XPCError::Code::Untrusted);
        EXPECT_THAT(error->description, HasSubstr(path_ + " is writable by others"));
    }
}

TEST_F(BootstrapFolderTest, AFolderOfSomebodyElseIsNotTrusted) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root gives folders away";
    ASSERT_EQ(::mkdir(path_.c_str(), 0700), 0);
    ASSERT_EQ(::chown(path_.c_str(), kSomebodyElse, kSomebodyElse), 0);

    EXPECT_THAT(whyNotListening(), HasSubstr("belongs to user 65534"));
    const auto error = whyNotConnecting();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, XPCError::Code::Untrusted);
}

TEST_F(BootstrapFolderTest, ALinkInItsPlaceIsNotFollowed) {
    const std::string elsewhere = parent_.path() + "/elsewhere";
    ASSERT_EQ(::mkdir(elsewhere.c_str(), 0700), 0);
    ASSERT_EQ(::symlink(elsewhere.c_str(), path_.c_str()), 0);

    EXPECT_THAT(whyNotListening(), HasSubstr("cannot be opened"));
    EXPECT_TRUE(whyNotConnecting());
}

TEST_F(BootstrapFolderTest, AFileInItsPlaceIsNoFolder) {
    UniqueFd(::open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)).reset();

    EXPECT_THAT(whyNotListening(), HasSubstr("cannot be opened"));
    EXPECT_TRUE(whyNotConnecting());
}

TEST_F(BootstrapFolderTest, AFolderWithoutItsParentIsNotMade) {
    const EnvironmentChange deeper("SEVRIN_BOOTSTRAP_DIR", path_ + "/a/b");

    EXPECT_THAT(whyNotListening(), HasSubstr("cannot be made: No such file or directory"));
}

TEST_F(BootstrapFolderTest, AnAddressHoldsTheNameAndNotTheFoldersPath) {
    const std::string longest(80, 'n');

    const sockaddr_un address = addressIn(1'234, longest);

    EXPECT_EQ(std::string(address.sun_path), "/proc/self/fd/1234/" + longest);
    EXPECT_THROW((void)addressIn(3, std::string(200, 'n')), std::length_error);
}

TEST_F(BootstrapFolderTest, ANameThatIsNoFileNameHasNoAddress) {
    for (const std::string& name :
         {std::string(), std::string("."), std::string(".."), std::string("a/b"), std::string("/a"),
          std::string("../a"), std::string("a\0b", 3)}) {
        EXPECT_THROW((void)addressIn(3, name), std::invalid_argument) << name;
    }
}

// A set-id program runs with rights that whoever starts it lacks, so it listens to none of the
// variables.
TEST_F(BootstrapFolderTest, ASetIdProgramIgnoresTheEnvironment) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root makes a program set-id";
    const std::string program = parent_.path() + "/helper";
    std::filesystem::copy_file(XPC_TEST_HELPER, program);
    const auto foldersSaid = [&](mode_t mode) {
        EXPECT_EQ(::chmod(program.c_str(), mode), 0);
        TestProcess::Start start;
        start.user = kSomebodyElse;
        start.environment = {"SEVRIN_BOOTSTRAP_DIR=/elsewhere", "XDG_RUNTIME_DIR=/elsewhere"};
        std::string said;
        for (const char* domain : {"system", "user"}) {
            TestProcess process(program, {"folder", domain}, start);
            said += process.line().value_or("nothing") + " ";
            EXPECT_EQ(process.finish(), 0);
        }
        return said;
    };

    EXPECT_EQ(foldersSaid(0755), "/elsewhere /elsewhere ");
    EXPECT_THAT(foldersSaid(04755),
                testing::AnyOf("/run/sevrin /run/user/0/sevrin ", "/run/sevrin /tmp/sevrin-0 "));
}

}  // namespace
}  // namespace sevrin::platform::bootstrap
