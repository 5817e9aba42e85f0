// `switchboardctl path tree`: all that is below a folder, as it is met.
//
// A walk without recursion that holds the lists of the folders on the way to where it is, and no
// others. Links are shown and never followed.
#include <fmt/format.h>

#include <set>
#include <utility>

#include "Common/Source/Utilities/KTRegularFile.h"
#include "tools/AnswerBuffer.h"
#include "tools/ItemRows.h"
#include "tools/Verbs/PathActions.h"

namespace sevrin {

using platform::NSException;
using platform::Value;

namespace {

struct Totals {
    std::uint64_t folders = 0;
    std::uint64_t files = 0;
    std::uint64_t links = 0;
    std::uint64_t others = 0;
    std::uint64_t unreadable = 0;
    std::int64_t size = 0;       // bytes of files and links; of a file with several names once
    std::int64_t allocated = 0;  // the same
};

class Tree {
public:
    Tree(const Invocation& invocation, const PathOptions& options)
        : invocation_(invocation),
          options_(options),
          rows_(ItemRows::Style::Tree, invocation.options().columns) {}

    [[nodiscard]] ExitStatus run() {
        invocation_.answerHeader(rows_.columns());
        bool isComplete = true;
        for (const std::string& path : options_.paths) {
            const KTFileInfoPtr root = findItem(path);
            isComplete = isComplete && root;
            if (root) walk(root, path);
        }
        showTotals();
        return isComplete && totals_.unreadable == 0 ? ExitStatus::Done : ExitStatus::No;
    }

private:
    // A folder whose entries are being shown: the next one of them.
    struct Level {
        KTDirectoryPtr directory;
        KTFileInfoPtr next;
    };

    void walk(const KTFileInfoPtr& root, const std::string& path) {
        show(*root, path);
        enter(*root, *root);
        while (!levels_.empty()) {
            const KTFileInfoPtr item = levels_.back().next;
            if (!item) {
                leave();
                continue;
            }
            levels_.back().next = item->nextObj();
            if (isHiddenItem(*item) && !options_.isAll) continue;
            show(*item, item->name());
            enter(*item, *root);
        }
    }

    void enter(KTFileInfo& item, const KTFileInfo& root) {
        KTDirectoryPtr directory = item.asDirectory();
        if (!directory || levels_.size() >= options_.depth.value_or(SIZE_MAX)) return;
        if (options_.isOneVolume && !isOnSameVolume(item, root)) return;
        if (isOutputTerminal()) buffer_.flush();
        if (const auto failure = failureOfListing(*directory, options_.order)) {
            reportFailure(item.path(), "cannot be read: " + *failure);
            return;
        }
        KTFileInfoPtr first = directory->firstObject();
        levels_.push_back({std::move(directory), std::move(first)});
    }

    // Its list goes with it.
    void leave() {
        levels_.back().directory->flushDirectoryContents();
        levels_.pop_back();
    }

    // One whose attributes cannot be had was said to be so already.
    static bool isOnSameVolume(const KTFileInfo& item, const KTFileInfo& root) try {
        return item.deviceID() == root.deviceID();
    } catch (const NSException&) {
        return false;
    }

    void show(KTFileInfo& item, const std::string& name) {
        try {
            if (invocation_.options().isJson) {
                addRecord(ItemRows::record(item));
            } else {
                buffer_.add(rows_.columns().line(rows_.cells(item, name, levels_.size())));
            }
            count(item);
        } catch (const NSException& exception) {
            showBare(item, name, reasonOf(exception));
        }
    }

    void showBare(KTFileInfo& item, const std::string& name, const std::string& reason) {
        if (invocation_.options().isJson) {
            addRecord(ItemRows::bareRecord(item, reason));
        } else {
            buffer_.add(rows_.columns().line(rows_.bareCells(item, name, levels_.size())));
        }
        countKind(item);
        reportFailure(item.path(), reason);
    }

    void addRecord(Json record) {
        record["depth"] = levels_.size();
        buffer_.add(lineOf(record) + '\n');
    }

    void reportFailure(const std::string& path, const std::string& reason) {
        buffer_.flush();
        complain(path, reason);
        ++totals_.unreadable;
    }

    void count(const KTFileInfo& item) {
        const auto* const file = dynamic_cast<const KTRegularFile*>(&item);
        const bool isNew = file == nullptr || file->linkCount() < 2 ||
                           seen_.emplace(file->deviceID(), file->localIdentifier()).second;
        if (file != nullptr && isNew) {
            totals_.size += file->logicalSize();
            totals_.allocated += file->physicalSize();
        }
        countKind(item);
    }

    void countKind(const KTFileInfo& item) {
        std::uint64_t& number = item.isDirectory()      ? totals_.folders
                                : item.isRegularFile()  ? totals_.files
                                : item.isSymbolicLink() ? totals_.links
                                                        : totals_.others;
        ++number;
    }

    void showTotals() {
        if (!invocation_.options().isJson) {
            if (!invocation_.options().hasLegend) return;
            buffer_.add(fmt::format(
                "\n{} folders, {} files, {} links, {} others; {} bytes, {} allocated; {} not "
                "read\n",
                totals_.folders, totals_.files, totals_.links, totals_.others, totals_.size,
                totals_.allocated, totals_.unreadable));
            return;
        }
        Json record = newRecord();
        record["totals"] = {{"folders", totals_.folders},
                            {"files", totals_.files},
                            {"links", totals_.links},
                            {"others", totals_.others},
                            {"size", jsonOf(Value(totals_.size))},
                            {"allocated", jsonOf(Value(totals_.allocated))},
                            {"unreadable", totals_.unreadable}};
        buffer_.add(lineOf(record) + '\n');
    }

    const Invocation& invocation_;
    const PathOptions& options_;
    const ItemRows rows_;
    AnswerBuffer buffer_;
    std::vector<Level> levels_;
    std::set<std::pair<std::int32_t, std::uint64_t>> seen_;  // files with several names
    Totals totals_;
};

}  // namespace

ExitStatus printTrees(const Invocation& invocation, const PathOptions& options) {
    return Tree(invocation, options).run();
}

}  // namespace sevrin
