// One run of one verb: its options, its line to the switchboard, its output.
//
// What verbs have in common, and nothing of any one verb. Printing may be done on any thread, the
// rest on the main thread.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "client/Switchboard.h"
#include "tools/Columns.h"
#include "tools/Failure.h"
#include "tools/Json.h"
#include "tools/Output.h"
#include "tools/Target.h"

namespace sevrin {

struct CommonOptions {
    Target target;
    bool isJson = false;
    bool isQuiet = false;
    bool isVerbose = false;
    bool hasLegend = true;
    ColorWish color = ColorWish::Auto;
    std::string columns;                               // of --output; empty: the default ones
    std::optional<std::chrono::microseconds> timeout;  // of --timeout
};

class Invocation {
public:
    // How long to wait for an answer unless --timeout says it.
    static constexpr std::chrono::seconds kAnswerTimeout{5};

    Invocation(std::string verb, CommonOptions options);

    [[nodiscard]] const CommonOptions& options() const { return options_; }

    // When to give up on an answer to a question put at this moment.
    [[nodiscard]] Deadline deadline() const;

    // MARK: The switchboard

    // A client that is connected, and speaks for the user that --user= names. Throws Failure.
    [[nodiscard]] SwitchboardClient connect(SwitchboardClient::Options options = {}) const;

    // The answer; throws the Failure that its absence means.
    template <typename Type>
    [[nodiscard]] Type require(Result<Type> result) const {
        if (!result) throw switchboardFailure(result.error(), options_.target);
        return *std::move(result);
    }
    void require(const Result<void>& result) const {
        if (!result) throw switchboardFailure(result.error(), options_.target);
    }

    // MARK: Output

    // One answer: as text, which gets its line end here, or as JSON, whichever was asked for.
    void answer(std::string_view text, const Json& record) const;

    // Lines of text as they are, in colours: `style` is the terminal's sequence for it, or empty.
    void answerLines(std::string_view text, std::string_view style) const;

    // The header of a table that is printed row by row, if it is to have one, and a row of it.
    void answerHeader(const Columns& columns) const;
    void answerRow(const Columns& columns, const Columns::Cells& row, const Json& record) const;

    // A remark on standard error: always but with --quiet, or only with --verbose.
    void note(std::string_view text) const;
    void detail(std::string_view text) const;

private:
    void requireServed(std::uint32_t user) const;

    const std::string verb_;
    const CommonOptions options_;
    const bool isColored_;
};

}  // namespace sevrin
