// For tests only: the shared log file of a home folder of the test's own.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "Common/Source/Utilities/TestLogger.h"
#include "Platform/TestPlaces.h"
#include "Platform/UniqueFd.h"

namespace sevrin {

class TestLogFile {
public:
    explicit TestLogFile(std::string_view parent = "/tmp") : places_(parent) {}

    [[nodiscard]] std::string home() const { return places_.home(); }
    [[nodiscard]] std::string folder() const { return home() + "/Library/Logs/Sevrin"; }

    // The current file, or a generation.
    [[nodiscard]] std::string path(int generation = 0) const {
        const std::string current = folder() + "/Sevrin.log";
        return generation == 0 ? current : current + "." + std::to_string(generation);
    }

    void makeFolder() const { std::filesystem::create_directories(folder()); }

    [[nodiscard]] std::string read(int generation = 0) const {
        std::ifstream file(path(generation), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    [[nodiscard]] std::vector<std::string> lines(int generation = 0) const {
        std::istringstream text(read(generation));
        std::vector<std::string> lines;
        for (std::string line; std::getline(text, line);)
            lines.push_back(line);
        return lines;
    }

private:
    platform::TestPlaces places_;
};

}  // namespace sevrin
