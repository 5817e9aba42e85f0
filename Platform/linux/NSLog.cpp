// The console line: what stands before a message, and what of the message a console may see.
//
// Nothing about standard error is remembered between calls, because a program may redirect it.
#include "Platform/NSLog.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <string>

#include "Platform/NSDateFormatter.h"
#include "Platform/Text.h"
#include "Platform/linux/ConsoleWriter.h"

namespace sevrin::platform {
namespace {

// The journal's words for "of informational importance", read at the start of each line.
constexpr std::string_view kPriority = "<6>";
constexpr std::string_view kIndentation = "    ";

// Whether JOURNAL_STREAM, "device:inode" in decimal, names this file. A program may inherit the
// variable and have its standard error redirected, which is why the journal says where it listens.
bool isJournal(const struct stat& file) {
    const char* value = std::getenv("JOURNAL_STREAM");
    if (value == nullptr) return false;
    const std::string_view text = value;
    dev_t device = 0;
    ino_t inode = 0;
    const char* const end = text.data() + text.size();
    const auto [colon, deviceError] = std::from_chars(text.data(), end, device);
    if (deviceError != std::errc() || colon == end || *colon != ':') return false;
    const auto [last, inodeError] = std::from_chars(colon + 1, end, inode);
    return inodeError == std::errc() && last == end && device == file.st_dev &&
           inode == file.st_ino;
}

// Whether a terminal shows this rather than obeying it.
bool isShown(char32_t character) {
    if (character == kInvalidUtf8) return false;
    return character == '\t' || (character >= 0x20 && character < 0x7F) || character >= 0xA0;
}

void appendHexEscapes(std::string& out, std::string_view bytes) {
    constexpr char kHexDigits[] = "0123456789abcdef";
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        out.append({'\\', 'x', kHexDigits[value >> 4], kHexDigits[value & 15]});
    }
}

// Appends what a console may see of `text`, with `lineBreak` for its line breaks.
void appendShown(std::string& out, std::string_view text, std::string_view lineBreak) {
    std::size_t position = 0;
    while (position < text.size()) {
        const std::size_t start = position;
        const char32_t character = decodeUtf8(text, position);
        const std::string_view bytes = text.substr(start, position - start);
        if (character == '\n') {
            out += lineBreak;
        } else if (isShown(character)) {
            out += bytes;
        } else {
            appendHexEscapes(out, bytes);
        }
    }
}

// Appends "date time processname[pid] ".
void appendOrigin(std::string& out) {
    // Never destroyed: messages may come from destructors that run when the program ends.
    static const NSDateFormatter& formatter = *new NSDateFormatter("yyyy-MM-dd HH:mm:ss.SSS ");
    formatter.appendStringFromDate(out, NSDate::date());
    appendShown(out, program_invocation_short_name, "\\x0a");  // It is whatever the caller passed.
    out += '[';
    out += std::to_string(::getpid());
    out += "] ";
}

}  // namespace

void NSLog(std::string_view message) {
    const int errorBefore = errno;
    if (message.ends_with('\n')) message.remove_suffix(1);

    struct stat standardError {};
    if (::fstat(STDERR_FILENO, &standardError) == 0) {
        std::string text;
        std::string lineBreak = "\n";
        if (isJournal(standardError)) {
            text = kPriority;
            lineBreak += kPriority;
        } else {
            appendOrigin(text);
        }
        lineBreak += kIndentation;
        appendShown(text, message, lineBreak);
        text += '\n';
        writeToStandardError(text, standardError.st_mode);
    }
    errno = errorBefore;
}

}  // namespace sevrin::platform
