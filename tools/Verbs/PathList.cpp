// `switchboardctl path ls`: the entries of folders, in the order of the model.
#include <fmt/format.h>

#include "tools/AnswerBuffer.h"
#include "tools/ItemRows.h"
#include "tools/Printable.h"
#include "tools/Verbs/PathActions.h"

namespace sevrin {

namespace {

class Listing {
public:
    Listing(const Invocation& invocation, const PathOptions& options)
        : invocation_(invocation),
          options_(options),
          style_(options.isLong ? ItemRows::Style::Long : ItemRows::Style::Names) {
        // A column that does not exist is told before anything is looked at.
        (void)ItemRows(style_, invocation.options().columns);
    }

    [[nodiscard]] ExitStatus run() {
        bool isFirst = true;
        for (const std::string& path : options_.paths) {
            const KTFileInfoPtr item = findItem(path);
            if (!item) {
                status_ = ExitStatus::No;
                continue;
            }
            if (options_.paths.size() > 1 && !invocation_.options().isJson && item->isDirectory()) {
                buffer_.add(fmt::format("{}{}:\n", isFirst ? "" : "\n", printable(path)));
            }
            isFirst = false;
            list(path, item);
        }
        return status_;
    }

private:
    void list(const std::string& path, const KTFileInfoPtr& item) {
        ItemRows rows(style_, invocation_.options().columns);
        const KTDirectoryPtr directory = item->asDirectory();
        if (!directory) {
            show(rows, *item, path);
            return;
        }
        if (const auto failure = failureOfListing(*directory, options_.order)) {
            reportFailure(path, "cannot be read: " + *failure);
            return;
        }
        fit(rows, *directory);
        buffer_.flush();
        invocation_.answerHeader(rows.columns());
        for (const KTFileInfoPtr& entry : *directory) {
            if (isShown(*entry)) show(rows, *entry, entry->name());
        }
    }

    // Two walks over the list cost less memory than the rows of a long one.
    void fit(ItemRows& rows, KTDirectory& directory) const {
        if (invocation_.options().isJson || rows.columns().chosenCount() == 1) return;
        for (const KTFileInfoPtr& entry : directory) {
            if (isShown(*entry)) rows.columns().fit(cellsOf(rows, *entry, entry->name()));
        }
    }

    [[nodiscard]] bool isShown(const KTFileInfo& item) const {
        return options_.isAll || !isHiddenItem(item);
    }

    [[nodiscard]] static Columns::Cells cellsOf(const ItemRows& rows, KTFileInfo& item,
                                                const std::string& name) {
        try {
            return rows.cells(item, name);
        } catch (const platform::NSException&) {
            return rows.bareCells(item, name);
        }
    }

    void show(const ItemRows& rows, KTFileInfo& item, const std::string& name) {
        try {
            if (invocation_.options().isJson) {
                buffer_.add(lineOf(ItemRows::record(item)) + '\n');
            } else {
                buffer_.add(rows.columns().line(rows.cells(item, name)));
            }
        } catch (const platform::NSException& exception) {
            showBare(rows, item, name, reasonOf(exception));
        }
    }

    void showBare(const ItemRows& rows, KTFileInfo& item, const std::string& name,
                  const std::string& reason) {
        if (invocation_.options().isJson) {
            buffer_.add(lineOf(ItemRows::bareRecord(item, reason)) + '\n');
        } else {
            buffer_.add(rows.columns().line(rows.bareCells(item, name)));
        }
        reportFailure(item.path(), reason);
    }

    void reportFailure(const std::string& path, const std::string& reason) {
        buffer_.flush();
        complain(path, reason);
        status_ = ExitStatus::No;
    }

    const Invocation& invocation_;
    const PathOptions& options_;
    const ItemRows::Style style_;
    AnswerBuffer buffer_;
    ExitStatus status_ = ExitStatus::Done;
};

}  // namespace

ExitStatus listItems(const Invocation& invocation, const PathOptions& options) {
    return Listing(invocation, options).run();
}

}  // namespace sevrin
