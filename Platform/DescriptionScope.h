// Keeps descriptions finite: objects may reach themselves, and an archive made to do harm can hold
// a tree that is enormous when written out, since any of its parts may stand in many places.
//
// Whatever describes the things within itself opens a scope for as long as it does so. Per thread;
// nothing here throws.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace sevrin::platform {

// Bytes after which a description of many things ends with an ellipsis. Far beyond what anybody
// reads, and little enough to make in a moment.
inline constexpr std::size_t kDescriptionBytesMax = 1024 * 1024;

// Things within things that a description follows: each takes stack.
inline constexpr int kDescriptionLevelsMax = 16;

inline constexpr std::string_view kEllipsis = "...";

class DescriptionScope {
public:
    // `subject` is what is being described, or nullptr where it cannot reach itself. Must outlive
    // the scope.
    explicit DescriptionScope(const void* subject) noexcept;
    DescriptionScope(const DescriptionScope&) = delete;
    DescriptionScope& operator=(const DescriptionScope&) = delete;
    ~DescriptionScope();

    // Whether what is within the subject may be described: the subject is not being described
    // further out already, nor is it too deep, nor has there been too much text.
    [[nodiscard]] bool mayDescribeContents() const noexcept;

    // Takes note of text that became part of the outermost description of this thread.
    static void noteText(std::size_t bytes) noexcept;

    // Whether that description has had too much text.
    [[nodiscard]] static bool isFull() noexcept;

private:
    const void* const subject_;
    const DescriptionScope* const outer_;
    const int level_;
};

// `text`, or as much of it as kDescriptionBytesMax allows, with an ellipsis at the end.
[[nodiscard]] std::string withoutExcess(std::string text);

}  // namespace sevrin::platform
