// Tests of preferences: what is found where, what is written, what is refused.
#include "Platform/CFPreferences.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Platform/TestPlaces.h"

namespace sevrin::platform {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::string_view kDomain = "com.example.app";

class CFPreferencesTest : public testing::Test {
protected:
    CFPreferencesTest() {
        CFPreferencesSetFaultReporter([this](const std::string& what) { faults_.push_back(what); });
    }
    ~CFPreferencesTest() override { CFPreferencesSetFaultReporter(nullptr); }

    static Value get(std::string_view key) { return CFPreferencesCopyAppValue(key, kDomain); }
    static bool set(std::string_view key, const Value& value) {
        CFPreferencesSetAppValue(key, value, kDomain);
        return CFPreferencesAppSynchronize(kDomain);
    }

    const TestPlaces places_;
    std::vector<std::string> faults_;
};

TEST_F(CFPreferencesTest, WhatIsNowhereIsNull) {
    EXPECT_TRUE(get("key").isNull());
    EXPECT_THAT(faults_, IsEmpty());
}

TEST_F(CFPreferencesTest, WhatOthersWroteIsFound) {
    writePropertyList(places_.userFile(kDomain), "{\"key\": \"text\", \"number\": 5}");

    EXPECT_EQ(get("key"), Value("text"));
    EXPECT_EQ(get("number"), Value(5));
}

TEST_F(CFPreferencesTest, AChangeByOthersIsSeenAtTheNextLookup) {
    for (int round = 0; round < 5; ++round) {
        writePropertyList(places_.userFile(kDomain), "{\"key\": " + std::to_string(round) + "}");
        EXPECT_EQ(get("key"), Value(round));
    }
    std::filesystem::remove(places_.userFile(kDomain));
    EXPECT_TRUE(get("key").isNull());
}

TEST_F(CFPreferencesTest, TheFirstPlaceThatHasTheKeyWins) {
    const std::string global = ".GlobalPreferences";
    writePropertyList(places_.machineFile(global), "{\"key\": 4, \"a\": 4}");
    EXPECT_EQ(get("key"), Value(4));
    writePropertyList(places_.machineFile(kDomain), "{\"key\": 3, \"b\": 3}");
    EXPECT_EQ(get("key"), Value(3));
    writePropertyList(places_.userFile(global), "{\"key\": 2, \"c\": 2}");
    EXPECT_EQ(get("key"), Value(2));
    writePropertyList(places_.userFile(kDomain), "{\"key\": 1, \"d\": 1}");
    EXPECT_EQ(get("key"), Value(1));

    EXPECT_EQ(get("a"), Value(4));
    EXPECT_EQ(get("b"), Value(3));
    EXPECT_EQ(get("c"), Value(2));
    EXPECT_EQ(get("d"), Value(1));
}

TEST_F(CFPreferencesTest, TheValuesOfAllApplicationsHaveADomainOfTheirOwn) {
    CFPreferencesSetAppValue("key", 7, kCFPreferencesAnyApplication);

    EXPECT_EQ(get("key"), Value(7));
    ASSERT_TRUE(CFPreferencesAppSynchronize(kCFPreferencesAnyApplication));
    EXPECT_EQ(readPropertyList(places_.userFile(".GlobalPreferences")), "{'key': 7}");
}

TEST_F(CFPreferencesTest, WhatIsSetIsSeenAtOnceAndWrittenWhenSynchronised) {
    CFPreferencesSetAppValue("key", "new", kDomain);

    EXPECT_EQ(get("key"), Value("new"));
    EXPECT_FALSE(std::filesystem::exists(places_.userFile(kDomain)));
    EXPECT_TRUE(CFPreferencesAppSynchronize(kDomain));
    EXPECT_EQ(readPropertyList(places_.userFile(kDomain)), "{'key': 'new'}");
    EXPECT_EQ(get("key"), Value("new"));
}

TEST_F(CFPreferencesTest, EveryKindOfValueIsReadByOthers) {
    const auto date = NSDate::dateWithTimeIntervalSinceReferenceDate(86400.0);
    ASSERT_TRUE(set("values", ValueArray{true, -3, 1.5, "t\u00e4xt", Data{std::string("\0x", 2)},
                                         date, std::numeric_limits<std::uint64_t>::max(),
                                         Dictionary{{"inner", ValueArray{}}}}));

    EXPECT_EQ(
        readPropertyList(places_.userFile(kDomain)),
        "{'values': [True, -3, 1.5, 't\u00e4xt', b'\\x00x', datetime.datetime(2001, 1, 2, 0, 0), "
        "18446744073709551615, {'inner': []}]}");
}

TEST_F(CFPreferencesTest, WhatOthersAddedMeanwhileStays) {
    ASSERT_TRUE(set("ours", 1));
    CFPreferencesSetAppValue("ours", 2, kDomain);
    writePropertyList(places_.userFile(kDomain), "{\"ours\": 1, \"theirs\": 1}");

    ASSERT_TRUE(CFPreferencesAppSynchronize(kDomain));

    EXPECT_EQ(readPropertyList(places_.userFile(kDomain)), "{'ours': 2, 'theirs': 1}");
}

TEST_F(CFPreferencesTest, NullRemovesTheUsersValueAndTheMachinesShows) {
    writePropertyList(places_.machineFile(kDomain), "{\"key\": \"machine\"}");
    ASSERT_TRUE(set("key", "user"));

    CFPreferencesSetAppValue("key", nullptr, kDomain);

    EXPECT_EQ(get("key"), Value("machine"));
    ASSERT_TRUE(CFPreferencesAppSynchronize(kDomain));
    EXPECT_EQ(get("key"), Value("machine"));
    EXPECT_EQ(readPropertyList(places_.userFile(kDomain)), "{}");
}

TEST_F(CFPreferencesTest, AllValuesOfTheUserAreListedThoseNotWrittenIncluded) {
    writePropertyList(places_.machineFile(kDomain), "{\"machine\": 1}");
    writePropertyList(places_.userFile(kDomain), "{\"a\": 1, \"b\": 2}");
    CFPreferencesSetAppValue("a", nullptr, kDomain);
    CFPreferencesSetAppValue("c", 3, kDomain);

    EXPECT_EQ(CFPreferencesCopyMultiple(kDomain), (Dictionary{{"b", 2}, {"c", 3}}));
}

TEST_F(CFPreferencesTest, TheFileAndItsFoldersAreTheUsersAlone) {
    ASSERT_TRUE(set("key", 1));

    struct stat found {};
    ASSERT_EQ(::stat(places_.userFile(kDomain).c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777, 0600U);
    for (const char* folder : {"/Library", "/Library/Preferences"}) {
        ASSERT_EQ(::stat((places_.home() + folder).c_str(), &found), 0);
        EXPECT_EQ(found.st_mode & 07777, 0700U) << folder;
    }
}

TEST_F(CFPreferencesTest, NothingIsLeftBesideTheFile) {
    ASSERT_TRUE(set("key", 1));

    std::vector<std::string> names;
    for (const auto& entry :
         std::filesystem::directory_iterator(places_.home() + "/Library/Preferences"))
        names.push_back(entry.path().filename());
    EXPECT_THAT(names, ElementsAre("com.example.app.plist"));
}

TEST_F(CFPreferencesTest, SettingWhatIsThereAlreadyWritesNothing) {
    ASSERT_TRUE(set("key", 1));
    struct stat before {};
    ASSERT_EQ(::stat(places_.userFile(kDomain).c_str(), &before), 0);

    ASSERT_TRUE(set("key", 1));

    struct stat after {};
    ASSERT_EQ(::stat(places_.userFile(kDomain).c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
}

TEST_F(CFPreferencesTest, ANameThatIsNoneOfADomainIsRefused) {
    using namespace std::string_literals;
    for (const std::string& domain :
         {""s, "."s, ".."s, "../x"s, "a/b"s, "/etc/passwd"s, ".hidden"s, "nul\0byte"s,
          "line\nbreak"s, "stray\xff"s, std::string(kPreferenceDomainBytesMax + 1, 'x')}) {
        EXPECT_THROW(static_cast<void>(CFPreferencesCopyAppValue("key", domain)),
                     std::invalid_argument);
        EXPECT_THROW(CFPreferencesSetAppValue("key", 1, domain), std::invalid_argument);
        EXPECT_THROW(static_cast<void>(CFPreferencesCopyMultiple(domain)), std::invalid_argument);
        EXPECT_THROW(static_cast<void>(CFPreferencesAppSynchronize(domain)), std::invalid_argument);
    }
    EXPECT_FALSE(std::filesystem::exists(places_.home() + "/Library"));
}

TEST_F(CFPreferencesTest, TheLongestDomainServes) {
    const std::string domain(kPreferenceDomainBytesMax, 'x');
    CFPreferencesSetAppValue("key", 1, domain);

    EXPECT_TRUE(CFPreferencesAppSynchronize(domain));
    EXPECT_EQ(CFPreferencesCopyAppValue("key", domain), Value(1));
}

TEST_F(CFPreferencesTest, WhatNoPropertyListHoldsIsRefusedAndChangesNothing) {
    EXPECT_THROW(set("key", ValueArray{nullptr}), std::invalid_argument);
    EXPECT_THROW(set("key", "stray\xff"), std::invalid_argument);
    EXPECT_THROW(set("stray\xff", 1), std::invalid_argument);
    EXPECT_THROW(set("key", Set({1})), std::invalid_argument);

    EXPECT_TRUE(get("key").isNull());
}

// What a damaged file holds, and the words in which it is reported.
struct Damage {
    const char* content;
    const char* words;

    friend void PrintTo(const Damage& damage, std::ostream* out) { *out << damage.content; }
};

class CFPreferencesDamageTest : public CFPreferencesTest,
                                public testing::WithParamInterface<Damage> {
protected:
    void damage() const {
        writePropertyList(places_.userFile(kDomain),
                          GetParam().content[0] == '[' ? "[1]" : "{\"key\": 1}");
        if (GetParam().content[0] == '<')
            std::filesystem::resize_file(places_.userFile(kDomain), 20);
        if (GetParam().content[0] == 'n')
            std::ofstream(places_.userFile(kDomain)) << GetParam().content;
    }
};

TEST_P(CFPreferencesDamageTest, ReadsAsIfNothingWereThereAndSaysSoOnce) {
    damage();
    writePropertyList(places_.machineFile(kDomain), "{\"key\": \"machine\"}");

    EXPECT_EQ(get("key"), Value("machine"));
    EXPECT_TRUE(get("other").isNull());

    ASSERT_EQ(faults_.size(), 1U);
    EXPECT_THAT(faults_[0], HasSubstr(GetParam().words));
    EXPECT_THAT(faults_[0], HasSubstr(places_.userFile(kDomain)));
}

TEST_P(CFPreferencesDamageTest, IsKeptUnderAnotherNameWhenValuesAreWritten) {
    damage();
    const auto size = std::filesystem::file_size(places_.userFile(kDomain));

    ASSERT_TRUE(set("new", 1));

    EXPECT_EQ(readPropertyList(places_.userFile(kDomain)), "{'new': 1}");
    const std::string aside = places_.userFile(kDomain) + ".damaged-1";
    ASSERT_TRUE(std::filesystem::exists(aside));
    EXPECT_EQ(std::filesystem::file_size(aside), size);
    ASSERT_FALSE(faults_.empty());
    EXPECT_THAT(faults_.back(), HasSubstr("kept as " + aside));
}

INSTANTIATE_TEST_SUITE_P(Kinds, CFPreferencesDamageTest,
                         testing::Values(Damage{"<truncated", "no binary property list"},
                                         Damage{"no property list", "no binary property list"},
                                         Damage{"[wrong top", "no dictionary at the top"}));

TEST_F(CFPreferencesTest, EveryDamagedFileIsKept) {
    for (const char* name : {".damaged-1", ".damaged-2"}) {
        std::filesystem::create_directories(places_.home() + "/Library/Preferences");
        std::ofstream(places_.userFile(kDomain)) << "bad" << name;
        ASSERT_TRUE(set("key", name));
    }

    EXPECT_EQ(std::filesystem::file_size(places_.userFile(kDomain) + ".damaged-1"), 13U);
    EXPECT_EQ(std::filesystem::file_size(places_.userFile(kDomain) + ".damaged-2"), 13U);
}

TEST_F(CFPreferencesTest, AFileThatIsTooLargeIsDamaged) {
    writePropertyList(places_.userFile(kDomain), "{}");
    std::filesystem::resize_file(places_.userFile(kDomain), kPreferenceFileBytesMax + 1);

    EXPECT_TRUE(get("key").isNull());
    ASSERT_EQ(faults_.size(), 1U);
    EXPECT_THAT(faults_[0], HasSubstr("larger"));
}

TEST_F(CFPreferencesTest, ANamedPipeInPlaceOfTheFileKeepsNobodyWaiting) {
    std::filesystem::create_directories(places_.home() + "/Library/Preferences");
    ASSERT_EQ(::mkfifo(places_.userFile(kDomain).c_str(), 0600), 0);

    EXPECT_TRUE(get("key").isNull());
    EXPECT_TRUE(set("key", 1));
    EXPECT_EQ(readPropertyList(places_.userFile(kDomain)), "{'key': 1}");
}

TEST_F(CFPreferencesTest, WhatCannotBeWrittenIsReportedAndWrittenNextTime) {
    std::ofstream(places_.home() + "/Library") << "in the way";

    EXPECT_FALSE(set("key", 1));
    EXPECT_EQ(get("key"), Value(1));
    ASSERT_EQ(faults_.size(), 1U);
    EXPECT_THAT(faults_[0], HasSubstr("cannot write the preferences"));

    std::filesystem::remove(places_.home() + "/Library");
    EXPECT_TRUE(CFPreferencesAppSynchronize(kDomain));
    EXPECT_EQ(readPropertyList(places_.userFile(kDomain)), "{'key': 1}");
}

TEST_F(CFPreferencesTest, ADomainWithoutChangesIsSynchronisedWithoutAFile) {
    EXPECT_TRUE(CFPreferencesAppSynchronize(kDomain));
    EXPECT_FALSE(std::filesystem::exists(places_.home() + "/Library"));
}

}  // namespace
}  // namespace sevrin::platform
