// Reads the generations of a log from the oldest to the current one, and goes on with what is
// written afterwards, whoever rotates meanwhile.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "Platform/UniqueFd.h"
#include "tools/LogRecord.h"

namespace sevrin {

class LogReader {
public:
    using Take = LogRecordParser::Take;

    // `paths`: the current file first, then its older generations; "-" is standard input. Opens
    // those that exist. Throws Failure for one that cannot be opened.
    explicit LogReader(std::vector<std::string> paths);

    // Whether there was any file to read.
    [[nodiscard]] bool hasFiles() const { return !files_.empty(); }

    // Hands out every record that the files have, except those of files that were last written
    // before `since`. Throws Failure for one that cannot be read.
    void read(LogMoment since, const Take& take);

    // Hands out the rest of a record that is not whole: nothing more will be read.
    void finish(const Take& take);

    // Hands out what has been written since, in the file read last and in those that took its name.
    void readOn(const Take& take);

private:
    struct File {
        std::string path;
        platform::UniqueFd descriptor;
        struct stat facts {};
    };

    [[nodiscard]] static bool open(const std::string& path, File& file);
    [[nodiscard]] bool isSame(const struct stat& facts) const;
    [[nodiscard]] bool isReplaced() const;
    void readToEnd(File& file, const Take& take);
    void readNewer(const Take& take);

    const std::vector<std::string> paths_;
    std::vector<File> files_;  // to be read, in their order; in the end the one that was read last
    LogRecordParser parser_;
};

}  // namespace sevrin
