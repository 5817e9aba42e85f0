// The name of one log line within the tree of all lines: a dotted path such as 8.73957130.412.5.2.
//
// The path of an identifier never changes; what grows is the count of children issued and the set
// of classifications seen among them. An identifier owns its parent, never its children. It can be
// archived, so that another process logs into the same line. Any thread may use any identifier.
//
// Paths also come from text and archives that somebody else wrote, so nothing here recurses along
// the chain, however long it is.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Common/Source/Utilities/LogClassification.h"
#include "Platform/NSCoder.h"
#include "Platform/Object.h"

namespace sevrin {

class LogLineIdentifier;
using LogLineIdentifierPtr = std::shared_ptr<LogLineIdentifier>;

class LogLineIdentifier final : public platform::Object, public platform::NSCoding {
    struct Passkey {};

public:
    // A new identifier with the sequence `number` under `parent`, or at the top when that is
    // nullptr; no classifications, no children.
    [[nodiscard]] static LogLineIdentifierPtr initExtendingWithID(LogLineIdentifierPtr parent,
                                                                  std::uint64_t number);

    // The chain that dotted text spells; nullptr for empty text. Lenient: each character counts as
    // a digit by its code (UTF-16 unit) less that of '0', modulo 2^64; two points in a row, and a
    // leading one, give a component 0; a final one gives nothing.
    [[nodiscard]] static LogLineIdentifierPtr logLineIdentifierFromString(std::string_view text);

    // Reads what encodeWithCoder() wrote. Throws what the coder throws, also when the parent is no
    // identifier.
    [[nodiscard]] static LogLineIdentifierPtr initWithCoder(platform::NSCoder& coder);
    [[nodiscard]] static constexpr bool supportsSecureCoding() { return true; }
    [[nodiscard]] static platform::Class& classObject();

    // For initExtendingWithID() only.
    LogLineIdentifier(Passkey, LogLineIdentifierPtr parent, std::uint64_t sequence);
    ~LogLineIdentifier() override;

    // Issues the next child of `line`: 1, 2, 3 ... Threads that ask at once get different ones.
    // Given the line's owner, for the child owns it too: a line that knew its own owners would cost
    // every line of a log a count more, and few are ever asked.
    [[nodiscard]] static LogLineIdentifierPtr next(const LogLineIdentifierPtr& line);

    // Notes that a line of `classification` was logged in this one; a negative one notes nothing.
    void addClassification(LogClassification classification) noexcept;

    // Bit c is set once a child line of classification c was logged.
    [[nodiscard]] std::uint16_t classifications() const noexcept {
        return classifications_.load(std::memory_order_relaxed);
    }

    // The enclosing line, or nullptr at the top.
    [[nodiscard]] const LogLineIdentifierPtr& parent() const noexcept { return parent_; }

    // Number of ancestors; 0 at the top.
    [[nodiscard]] std::uint64_t depth() const noexcept { return depth_; }

    // The low 32 bits of the topmost ancestor's sequence: the program that wrote the line.
    [[nodiscard]] std::int32_t application() const noexcept;

    // This line's number within its parent.
    [[nodiscard]] std::uint64_t sequence() const noexcept { return sequence_; }

    // Children issued so far.
    [[nodiscard]] std::uint64_t count() const noexcept {
        return subsequence_.load(std::memory_order_relaxed);
    }

    // The ancestor of `line` at depth `depth`; `line` itself when it is no deeper than that.
    [[nodiscard]] static LogLineIdentifierPtr parentIdentifierWithDepth(
        const LogLineIdentifierPtr& line, std::uint64_t depth);

    // Appends the dotted text.
    void appendIdentifierToString(std::string& text) const;

    // How long the text is at most if most of it is kept by the parent; 0 when it is not.
    [[nodiscard]] std::size_t keptSizeMax() const;

    // Writes the text to `out`, which has room for keptSizeMax() bytes, of which there is not 0;
    // gives its end.
    [[nodiscard]] char* writeKept(char* out) const;
    [[nodiscard]] std::string description() const override;

    // Whether `other` lies strictly below this one. Nothing contains itself or nullptr.
    [[nodiscard]] bool containsIdentifier(const LogLineIdentifierPtr& other) const noexcept;

    // -1, 0 or 1: this one before, equal to or after `other`. Less deep comes before deeper
    // whatever the numbers, so that 8.5 is before 8.1.1; of equal depth, the first number that
    // differs decides. nullptr comes before everything.
    [[nodiscard]] int compare(const LogLineIdentifierPtr& other) const noexcept;

    [[nodiscard]] const platform::Class& isa() const override { return classObject(); }
    [[nodiscard]] bool isEqual(const platform::Object& other) const override;
    [[nodiscard]] std::size_t hash() const override;

    // Keyed: everything. Sequential: the counters by their low 32 bits.
    void encodeWithCoder(platform::NSCoder& coder) const override;

private:
    const LogLineIdentifier* ancestorAt(std::uint64_t depth) const noexcept;
    int compareWith(const LogLineIdentifier* other) const noexcept;
    const std::string* childPrefix() const;
    void appendPath(std::string& text) const;

    LogLineIdentifierPtr parent_;  // Changes only in the destructor.
    const std::uint64_t sequence_;
    const std::uint64_t depth_;
    std::atomic<std::uint64_t> subsequence_ = 0;
    std::atomic<std::uint16_t> classifications_ = 0;

    // The text with a final point, which every child's text begins with; made when a second child
    // has been issued, for then more will be printed.
    mutable std::atomic<const std::string*> childPrefix_ = nullptr;
};

}  // namespace sevrin
