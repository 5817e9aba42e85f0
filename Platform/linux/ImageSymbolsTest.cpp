// Tests of symbol tables: a sound file's, and files that are not what was loaded.
#include "Platform/linux/ImageSymbols.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>

#include "Platform/TestFolder.h"

namespace sevrin::platform {
namespace {

[[gnu::noinline]] int someFunction(int number) {
    return number + 1;
}

const auto kPlace = reinterpret_cast<std::uintptr_t>(&someFunction);

std::uintptr_t baseOfProgram() {
    Dl_info found{};
    EXPECT_NE(::dladdr(reinterpret_cast<const void*>(kPlace), &found), 0);
    return reinterpret_cast<std::uintptr_t>(found.dli_fbase);
}

std::string program() {
    std::ifstream file("/proc/self/exe", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The table of a file of these bytes, taken for the program's.
ImageSymbols symbolsOf(const TestFolder& folder, const std::string& bytes) {
    const std::string path = folder.path() + "/image";
    std::ofstream(path, std::ios::binary) << bytes;
    return ImageSymbols(baseOfProgram(), path);
}

TEST(ImageSymbolsTest, AFunctionIsFoundByItsFirstAndLastByteOnly) {
    const ImageSymbols symbols(baseOfProgram(), "/proc/self/exe");

    const auto* function = symbols.find(kPlace);
    ASSERT_NE(function, nullptr);
    EXPECT_NE(function->name.find("someFunction"), std::string::npos);
    EXPECT_EQ(function->begin, kPlace);
    EXPECT_EQ(symbols.find(kPlace + function->size - 1), function);
    EXPECT_NE(symbols.find(kPlace + function->size), function);
    EXPECT_EQ(symbols.find(0), nullptr);
    EXPECT_EQ(symbols.find(UINTPTR_MAX), nullptr);
}

TEST(ImageSymbolsTest, ACopyOfTheFileNamesTheSame) {
    const TestFolder folder;

    EXPECT_NE(symbolsOf(folder, program()).find(kPlace), nullptr);
}

TEST(ImageSymbolsTest, AnotherFileNamesNothing) {
    const TestFolder folder;
    std::string changed = program();
    changed[0x28] = static_cast<char>(changed[0x28] + 1);  // Where its sections are.

    EXPECT_EQ(symbolsOf(folder, changed).find(kPlace), nullptr);
    EXPECT_EQ(symbolsOf(folder, "#!/bin/sh\n" + std::string(8192, ' ')).find(kPlace), nullptr);
    EXPECT_EQ(symbolsOf(folder, "").find(kPlace), nullptr);
    EXPECT_EQ(ImageSymbols(baseOfProgram(), folder.path() + "/gone").find(kPlace), nullptr);
    EXPECT_EQ(ImageSymbols(baseOfProgram(), folder.path()).find(kPlace), nullptr);
}

TEST(ImageSymbolsTest, AFileThatIsCutShortNamesNothing) {
    const TestFolder folder;
    const std::string whole = program();

    EXPECT_EQ(symbolsOf(folder, whole.substr(0, whole.size() / 2)).find(kPlace), nullptr);
    EXPECT_EQ(symbolsOf(folder, whole.substr(0, 100)).find(kPlace), nullptr);
}

TEST(ImageSymbolsTest, AnImageIsReadOnce) {
    const std::uintptr_t base = baseOfProgram();

    EXPECT_EQ(&ImageSymbols::ofImage(base, "program"), &ImageSymbols::ofImage(base, "program"));
    EXPECT_NE(ImageSymbols::ofImage(base, "program").find(kPlace), nullptr);
}

}  // namespace
}  // namespace sevrin::platform
