// Walking through archives: alone, and two side by side.
#include "tools/ArchiveText.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace sevrin {

namespace {

using Child = ArchiveGraph::Child;
using Item = ArchiveGraph::Item;

// What is still to be shown or compared is kept with the step that leads to it; the way to it is
// spelled only when somebody wants to read it.
class Ways {
public:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    std::size_t add(std::size_t before, const std::string& label) {
        steps_.push_back({before, label});
        return steps_.size() - 1;
    }

    [[nodiscard]] std::string text(std::size_t step) const {
        std::vector<const std::string*> labels;
        for (; step != kNone; step = steps_[step].before)
            labels.push_back(&steps_[step].label);
        std::string way;
        for (auto label = labels.rbegin(); label != labels.rend(); ++label)
            way += (way.empty() ? "" : "/") + **label;
        return way;
    }

private:
    struct Step {
        std::size_t before;
        std::string label;
    };
    std::vector<Step> steps_;
};

class Comparison {
public:
    Comparison(const ArchiveGraph& left, const ArchiveGraph& right) : left_(left), right_(right) {}

    std::vector<ArchiveDifference> run() {
        compareChildren(Ways::kNone, left_.roots(), right_.roots());
        while (!open_.empty()) {
            const Pair pair = open_.back();
            open_.pop_back();
            compare(pair);
        }
        return std::move(differences_);
    }

private:
    struct Pair {
        Item left;
        Item right;
        std::size_t way;
    };

    void compare(const Pair& pair) {
        const bool isContainer = left_.isContainer(pair.left);
        const std::string leftText = exactText(left_, pair.left);
        const std::string rightText = exactText(right_, pair.right);
        if (isContainer != right_.isContainer(pair.right) || leftText != rightText) {
            differences_.push_back({ways_.text(pair.way), leftText, rightText});
            return;
        }
        if (!isContainer || !areNew(pair)) return;
        compareChildren(pair.way, children(left_, pair.left), children(right_, pair.right));
    }

    // Data in full, and reals by their bits: what a reader need not see can differ too.
    static std::string exactText(const ArchiveGraph& graph, const Item& item) {
        const auto& list = graph.list();
        if (!item.isNil && list.kind(item.node) == platform::BinaryPropertyList::Kind::Data) {
            return "data " + base64(list.data(item.node));
        }
        return graph.text(item);
    }

    // Whether two objects meet for the first time. One that has met another one before is a
    // difference.
    bool areNew(const Pair& pair) {
        if (pair.left.number == 0 || pair.right.number == 0) return true;
        const auto [seenLeft, isNewLeft] = rightOf_.emplace(pair.left.number, pair.right.number);
        const auto [seenRight, isNewRight] = leftOf_.emplace(pair.right.number, pair.left.number);
        if (seenLeft->second != pair.right.number || seenRight->second != pair.left.number) {
            differences_.push_back(
                {ways_.text(pair.way), identity(isNewLeft), identity(isNewRight)});
            return false;
        }
        return isNewLeft;
    }

    static std::string identity(bool isNew) {
        return isNew ? "an object of its own" : "an object met before";
    }

    static std::vector<Child> children(const ArchiveGraph& graph, const Item& item) {
        std::vector<Child> result = graph.children(item);
        const std::string className = graph.className(item);
        if (className == "NSSet" || className == "NSMutableSet") {
            std::stable_sort(result.begin(), result.end(), [&](const Child& a, const Child& b) {
                return graph.text(a.item) < graph.text(b.item);
            });
            for (std::size_t place = 0; place < result.size(); ++place)
                result[place].label = fmt::format("{{{}}}", place);
        }
        return result;
    }

    // By label. Several with one label, which only objects as keys have, are taken in order.
    void compareChildren(std::size_t way, std::vector<Child> left, std::vector<Child> right) {
        const auto precedes = [](const Child& a, const Child& b) { return a.label < b.label; };
        std::stable_sort(left.begin(), left.end(), precedes);
        std::stable_sort(right.begin(), right.end(), precedes);
        std::size_t inLeft = 0;
        std::size_t inRight = 0;
        const std::size_t openBefore = open_.size();
        while (inLeft < left.size() || inRight < right.size()) {
            const bool hasLeft = inLeft < left.size();
            const bool hasRight = inRight < right.size();
            if (hasLeft && hasRight && left[inLeft].label == right[inRight].label) {
                open_.push_back(
                    {left[inLeft].item, right[inRight].item, ways_.add(way, left[inLeft].label)});
                ++inLeft;
                ++inRight;
            } else if (hasLeft && (!hasRight || precedes(left[inLeft], right[inRight]))) {
                const Child& child = left[inLeft++];
                differences_.push_back(
                    {ways_.text(ways_.add(way, child.label)), exactText(left_, child.item), ""});
            } else {
                const Child& child = right[inRight++];
                differences_.push_back(
                    {ways_.text(ways_.add(way, child.label)), "", exactText(right_, child.item)});
            }
        }
        // The first one is to be taken first.
        std::reverse(open_.begin() + static_cast<std::ptrdiff_t>(openBefore), open_.end());
    }

    const ArchiveGraph& left_;
    const ArchiveGraph& right_;
    Ways ways_;
    std::vector<Pair> open_;
    std::vector<ArchiveDifference> differences_;
    std::unordered_map<std::uint32_t, std::uint32_t> rightOf_;
    std::unordered_map<std::uint32_t, std::uint32_t> leftOf_;
};

}  // namespace

std::string archiveTree(const ArchiveGraph& graph) {
    struct Line {
        Child child;
        std::size_t level;
    };
    std::vector<Line> open;
    const auto push = [&open](std::vector<Child> children, std::size_t level) {
        for (auto child = children.rbegin(); child != children.rend(); ++child)
            open.push_back({std::move(*child), level});
    };
    push(graph.roots(), 0);

    std::unordered_set<std::uint32_t> seen;
    std::string text;
    while (!open.empty()) {
        const Line line = std::move(open.back());
        open.pop_back();
        const Item& item = line.child.item;
        text.append(2 * line.level, ' ').append(line.child.label).append(": ");
        text += graph.text(item);
        const bool isContainer = graph.isContainer(item);
        if (isContainer && item.number != 0) text += fmt::format(" #{}", item.number);
        const bool isShown = isContainer && (item.number == 0 || seen.insert(item.number).second);
        if (isContainer && !isShown) text += ", see above";
        std::vector<Child> children = isShown ? graph.children(item) : std::vector<Child>();
        if (!children.empty() && line.level + 1 == kArchiveLevelsShown) {
            text += ", deeper than is shown";
            children.clear();
        }
        text += '\n';
        if (graph.className(item) != "NSDate") push(std::move(children), line.level + 1);
    }
    return text;
}

std::vector<ArchiveDifference> archiveDifferences(const ArchiveGraph& left,
                                                  const ArchiveGraph& right) {
    return Comparison(left, right).run();
}

}  // namespace sevrin
