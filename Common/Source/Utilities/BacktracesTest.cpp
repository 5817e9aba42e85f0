// Tests of what a log knows about backtraces: tags, forgetting, descriptions of addresses.
#include "Common/Source/Utilities/Backtraces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <string>

#include "Platform/Format.h"
#include "Platform/Symbols.h"

namespace sevrin {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

using Addresses = std::array<std::uintptr_t, 2>;

TEST(BacktraceCacheTest, ATagIsTheSumOfTheAddresses) {
    BacktraceCache cache;

    const auto [tag, isNew] = cache.tag(Addresses{3, 4});

    EXPECT_EQ(tag, 7U);
    EXPECT_TRUE(isNew);
}

TEST(BacktraceCacheTest, TheSumWraps) {
    BacktraceCache cache;

    EXPECT_EQ(cache.tag(Addresses{UINTPTR_MAX, 2}).tag, 1U);
}

TEST(BacktraceCacheTest, ABacktraceIsNewOnce) {
    BacktraceCache cache;
    static_cast<void>(cache.tag(Addresses{3, 4}));

    const auto [tag, isNew] = cache.tag(Addresses{3, 4});

    EXPECT_EQ(tag, 7U);
    EXPECT_FALSE(isNew);
}

TEST(BacktraceCacheTest, BacktracesWithTheSameSumTakeTheNextNumber) {
    BacktraceCache cache;

    EXPECT_EQ(cache.tag(Addresses{3, 4}).tag, 7U);
    EXPECT_EQ(cache.tag(Addresses{4, 3}).tag, 8U);
    EXPECT_EQ(cache.tag(Addresses{2, 5}).tag, 9U);
    EXPECT_EQ(cache.tag(Addresses{4, 3}).tag, 8U);
    EXPECT_FALSE(cache.tag(Addresses{2, 5}).isNew);
}

TEST(BacktraceCacheTest, FlushingForgets) {
    BacktraceCache cache;
    static_cast<void>(cache.tag(Addresses{3, 4}));

    cache.flush();

    EXPECT_TRUE(cache.tag(Addresses{3, 4}).isNew);
}

TEST(BacktraceCacheTest, TheThousandAndFirstRepetitionForgets) {
    BacktraceCache cache;
    static_cast<void>(cache.tag(Addresses{3, 4}));
    static_cast<void>(cache.tag(Addresses{5, 6}));
    for (int i = 0; i < 1000; ++i)
        ASSERT_FALSE(cache.tag(Addresses{3, 4}).isNew);

    EXPECT_FALSE(cache.tag(Addresses{3, 4}).isNew);

    EXPECT_TRUE(cache.tag(Addresses{3, 4}).isNew);
    EXPECT_TRUE(cache.tag(Addresses{5, 6}).isNew);
}

// How often a backtrace that was shown is repeated until it is shown again.
int repetitionsUntilShownAgain(BacktraceCache& cache) {
    int repetitions = 0;
    while (repetitions < 2000 && !cache.tag(Addresses{3, 4}).isNew)
        ++repetitions;
    return repetitions;
}

TEST(BacktraceCacheTest, WhoeverForgetsStartsCountingAnew) {
    BacktraceCache cache;
    static_cast<void>(cache.tag(Addresses{3, 4}));

    EXPECT_EQ(repetitionsUntilShownAgain(cache), 1001);
    EXPECT_EQ(repetitionsUntilShownAgain(cache), 1001);

    for (int i = 0; i < 500; ++i)
        static_cast<void>(cache.tag(Addresses{3, 4}));
    cache.flush();
    static_cast<void>(cache.tag(Addresses{3, 4}));
    EXPECT_EQ(repetitionsUntilShownAgain(cache), 1001);
}

std::string addressLine(std::uintptr_t address) {
    std::string line;
    appendAddressLine(line, address);
    return line;
}

TEST(AddressLineTest, NamesTheFunctionAndItsImage) {
    const std::string line = addressLine(reinterpret_cast<std::uintptr_t>(&std::strtol) + 1);

    EXPECT_THAT(line, HasSubstr("strtol ("));
    EXPECT_THAT(line, HasSubstr(".so"));
    EXPECT_THAT(line.back(), ')');
    EXPECT_EQ(line.find(": "), 18U);
}

TEST(AddressLineTest, AnAddressOutsideAllImagesIsUnknown) {
    EXPECT_EQ(addressLine(0x10), "              0x10: (unknown image)");
}

TEST(AddressLineTest, AnImageThatNamesNothingThereIsNamedItself) {
    const auto image = platform::findSymbol(reinterpret_cast<std::uintptr_t>(&std::strtol) + 1);
    ASSERT_TRUE(image);
    const std::uintptr_t header = image->imageBase + 2;

    EXPECT_EQ(addressLine(header),
              platform::stringWithFormat("%18p: %18p unknown (%s@%18p)",
                                         reinterpret_cast<const void*>(header),
                                         static_cast<const void*>(nullptr), image->imagePath,
                                         reinterpret_cast<const void*>(image->imageBase)));
}

TEST(AddressLineTest, ARememberedLineIsTheSame) {
    const auto address = reinterpret_cast<std::uintptr_t>(&std::strtol) + 1;
    const std::string line = addressLine(address);

    for (std::uintptr_t other = 1; other <= 2 * kAddressLinesMax; ++other)
        EXPECT_THAT(addressLine(other), StartsWith("  "));

    EXPECT_EQ(addressLine(address), line);
}

}  // namespace
}  // namespace sevrin
