// Tests of symbols: functions of the program and of a library, and addresses that are neither.
#include "Platform/Symbols.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "Platform/CallStack.h"

namespace sevrin::platform {

namespace {

// The address that this returns to.
[[gnu::noinline]] void takeReturnAddress(std::array<std::uintptr_t, 1>& address) {
    if (captureCallStack(address) != address.size()) address[0] = 0;
}

}  // namespace

// Known to the dynamic linker.
[[gnu::visibility("default")]] std::uintptr_t addressWithinNamedFunction();
[[gnu::noinline]] std::uintptr_t addressWithinNamedFunction() {
    std::array<std::uintptr_t, 1> address{};
    takeReturnAddress(address);
    return address[0];
}

namespace {

// Known to this file only.
[[gnu::noinline]] std::uintptr_t addressWithinStaticFunction() {
    std::array<std::uintptr_t, 1> address{};
    takeReturnAddress(address);
    return address[0];
}

using testing::EndsWith;
using testing::HasSubstr;

TEST(SymbolsTest, AFunctionOfTheProgramIsNamed) {
    const std::uintptr_t place = addressWithinNamedFunction();

    const std::optional<Symbol> symbol = findSymbol(place);

    ASSERT_TRUE(symbol);
    EXPECT_THAT(symbol->name, HasSubstr("addressWithinNamedFunction"));
    EXPECT_EQ(symbol->address, reinterpret_cast<std::uintptr_t>(&addressWithinNamedFunction));
    EXPECT_THAT(symbol->imagePath, HasSubstr("PlatformTests"));
    EXPECT_LT(symbol->imageBase, place);
}

TEST(SymbolsTest, AFunctionThatNoOtherFileCanCallIsNamed) {
    const std::optional<Symbol> symbol = findSymbol(addressWithinStaticFunction());

    ASSERT_TRUE(symbol);
    EXPECT_THAT(symbol->name, HasSubstr("addressWithinStaticFunction"));
    EXPECT_EQ(symbol->address, reinterpret_cast<std::uintptr_t>(&addressWithinStaticFunction));
}

TEST(SymbolsTest, AFunctionOfALibraryIsNamed) {
    const auto place = reinterpret_cast<std::uintptr_t>(&std::strtol) + 1;

    const std::optional<Symbol> symbol = findSymbol(place);

    ASSERT_TRUE(symbol);
    EXPECT_THAT(symbol->name, HasSubstr("strtol"));
    EXPECT_THAT(symbol->imagePath, HasSubstr(".so"));
}

TEST(SymbolsTest, WhatAFunctionReturnsToIsTheFunctionBefore) {
    const auto start = reinterpret_cast<std::uintptr_t>(&addressWithinNamedFunction);

    const std::optional<Symbol> symbol = findSymbol(start);

    EXPECT_TRUE(!symbol || symbol->address != start);
}

TEST(SymbolsTest, WhatIsNoCodeIsNotFound) {
    const std::vector<char> memory(1024 * 1024);

    EXPECT_FALSE(findSymbol(0));
    EXPECT_FALSE(findSymbol(1));
    EXPECT_FALSE(findSymbol(reinterpret_cast<std::uintptr_t>(memory.data()) + 512));
}

}  // namespace
}  // namespace sevrin::platform
