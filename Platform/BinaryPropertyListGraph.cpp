// How the objects of a list hang together: no cycles, no endless nesting, keys that are text and
// differ, and nothing that grows out of proportion when walked.
#include <algorithm>
#include <limits>
#include <utility>

#include "Platform/BinaryPropertyList.h"

namespace sevrin::platform {

namespace {

// With fewer keys than this each is compared with each.
constexpr std::size_t kKeysSortedMin = 12;

}  // namespace

// Walks the containers below the top once each, those within a container before the container
// itself, along a stack of its own. Of the other containers it checks the references only.
class PropertyListGraphCheck {
public:
    using Index = BinaryPropertyList::Index;

    explicit PropertyListGraphCheck(const BinaryPropertyList& list)
        : list_(list),
          walkMax_(std::min<std::uint64_t>(
              std::max(kPropertyListWalkBytes, list.byteCount() * kPropertyListGrowthMax),
              std::numeric_limits<std::uint32_t>::max())),
          states_(list.count()) {
        constexpr std::size_t kNestingExpected = 8;
        open_.reserve(kNestingExpected);
    }

    void run() {
        if (isContainer(list_.top())) enter(list_.top());
        while (!open_.empty())
            step();
        if (entered_ == list_.containerCount_) return;
        for (Index object = 0; object < list_.count(); ++object) {
            if (isContainer(object) && states_[object].levels == 0) {
                list_.checkReferences(list_.nodes_[object]);
            }
        }
    }

private:
    // Of a container: what a walk through it visits in bytes, 0 before it is known, and its levels
    // of nesting, 0 until it is finished.
    struct State {
        std::uint32_t walk;
        std::uint16_t levels;
        bool isOpen;
    };

    struct Frame {
        Index container;
        std::size_t next;
        std::uint64_t walk;
        std::uint16_t levels;
    };

    static bool isContainer(BinaryPropertyList::Kind kind) {
        return kind == BinaryPropertyList::Kind::Array ||
               kind == BinaryPropertyList::Kind::Dictionary;
    }
    bool isContainer(Index object) const { return isContainer(list_.kind(object)); }

    void enter(Index container) {
        if (open_.size() == kPropertyListDepthMax) failDepth(container);
        list_.checkReferences(list_.nodes_[container]);
        if (list_.kind(container) == BinaryPropertyList::Kind::Dictionary) {
            list_.checkKeys(container);
        }
        states_[container].isOpen = true;
        ++entered_;
        open_.push_back({container, 0, 1, 0});
    }

    // The references of the innermost container up to one that has to be followed first, or to its
    // end.
    void step() {
        Frame& frame = open_.back();
        const auto* const nodes = list_.nodes_.data();
        const auto& container = nodes[frame.container];
        const std::size_t count = list_.refCount(container);
        const std::size_t width = list_.refBytes_;
        std::uint64_t walk = frame.walk;
        for (std::size_t place = frame.next; place < count; ++place) {
            const auto child =
                static_cast<Index>(list_.number(container.start + place * width, width));
            const auto& node = nodes[child];
            if (!isContainer(node.kind)) {
                walk += 1 + std::uint64_t{node.size} * node.unit;
                continue;
            }
            const State& state = states_[child];
            if (state.isOpen) {
                throw PropertyListError("a container that holds itself", list_.offset(child));
            }
            if (state.levels == 0) {
                frame.next = place;
                frame.walk = walk;
                enter(child);
                return;
            }
            walk += state.walk;
            frame.levels = std::max(frame.levels, state.levels);
        }
        frame.walk = walk;
        finish();
    }

    void finish() {
        const Frame& frame = open_.back();
        if (frame.levels == kPropertyListDepthMax) failDepth(frame.container);
        if (frame.walk > walkMax_) {
            throw PropertyListError("shared containers would grow beyond any use",
                                    list_.offset(frame.container));
        }
        states_[frame.container] = {static_cast<std::uint32_t>(frame.walk),
                                    static_cast<std::uint16_t>(frame.levels + 1), false};
        open_.pop_back();
    }

    [[noreturn]] void failDepth(Index container) const {
        throw PropertyListError("containers nested too deep", list_.offset(container));
    }

    const BinaryPropertyList& list_;
    const std::uint64_t walkMax_;
    std::vector<State> states_;
    std::vector<Frame> open_;
    std::size_t entered_ = 0;
};

void BinaryPropertyList::checkGraph() const {
    PropertyListGraphCheck(*this).run();
}

bool BinaryPropertyList::keysEqual(Index left, Index right) const {
    if (left == right) return true;
    if (nodes_[left].unit == 1) return stringEquals(right, data(left));
    return stringEquals(right, string(left));
}

// Whether each key is more than the one before, as sorted dictionaries are written: then none
// stands twice. Text outside ASCII is not looked at.
bool BinaryPropertyList::keysAscend(Index dictionary) const {
    std::string_view last;
    for (std::size_t place = 0; place < size(dictionary); ++place) {
        const Index object = key(dictionary, place);
        if (nodes_[object].unit != 1) return false;
        const std::string_view text = data(object);
        if (place > 0 && text <= last) return false;
        last = text;
    }
    return true;
}

// Objects first, then what they read: a key that is met many times is not copied that often.
bool BinaryPropertyList::anyKeyTwice(Index dictionary) const {
    std::vector<Index> objects;
    objects.reserve(size(dictionary));
    for (std::size_t place = 0; place < size(dictionary); ++place)
        objects.push_back(key(dictionary, place));
    std::sort(objects.begin(), objects.end());
    if (std::adjacent_find(objects.begin(), objects.end()) != objects.end()) return true;

    std::vector<std::string> texts;
    texts.reserve(objects.size());
    for (const Index object : objects)
        texts.push_back(string(object));
    std::sort(texts.begin(), texts.end());
    return std::adjacent_find(texts.begin(), texts.end()) != texts.end();
}

void BinaryPropertyList::checkKeys(Index dictionary) const {
    const std::size_t entries = size(dictionary);
    for (std::size_t place = 0; place < entries; ++place) {
        if (kind(key(dictionary, place)) == Kind::String) continue;
        throw PropertyListError("a key that is no text", offset(dictionary));
    }
    bool isTwice = false;
    if (entries < kKeysSortedMin) {
        for (std::size_t place = 1; place < entries && !isTwice; ++place) {
            for (std::size_t before = 0; before < place && !isTwice; ++before)
                isTwice = keysEqual(key(dictionary, before), key(dictionary, place));
        }
    } else {
        isTwice = !keysAscend(dictionary) && anyKeyTwice(dictionary);
    }
    if (isTwice) throw PropertyListError("a key that stands twice", offset(dictionary));
}

}  // namespace sevrin::platform
