// A home folder of a test program's own, so that what it logs and prefers is not the tester's.
//
// There as long as the tests run. A test that starts the program anew, to see it die, shares it, as
// does every program that a test starts without a home of its own.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace {

class OwnHome : public testing::Environment {
public:
    void SetUp() override {
        if (std::getenv(kMark) != nullptr) return;
        path_ = (std::filesystem::temp_directory_path() / "sevrin-home-XXXXXX").string();
        if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("mkdtemp " + path_);
        ::chmod(path_.c_str(), 0777);  // For programs that run as somebody else.
        ::setenv("CFFIXED_USER_HOME", path_.c_str(), 1);
        ::setenv(kMark, "1", 1);
    }
    void TearDown() override {
        if (path_.empty()) return;
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

private:
    static constexpr const char* kMark = "SEVRIN_TEST_HOME";

    std::string path_;
};

[[maybe_unused]] testing::Environment* const ownHome =
    testing::AddGlobalTestEnvironment(new OwnHome);

}  // namespace
