// Between binary property lists and values.
//
// Nesting is bounded on both ways, so these may recurse.
#include <unordered_map>
#include <utility>
#include <vector>

#include "Platform/BinaryPropertyList.h"
#include "Platform/BinaryPropertyListWriter.h"
#include "Platform/Class.h"

namespace sevrin::platform {

namespace {

using Kind = BinaryPropertyList::Kind;
using Index = BinaryPropertyList::Index;
using WriterIndex = BinaryPropertyListWriter::Index;

// Makes values of objects, of each container once.
class ValueReader {
public:
    explicit ValueReader(const BinaryPropertyList& list) : list_(list) {}

    Value read(Index object) {
        switch (list_.kind(object)) {
            case Kind::Boolean:
                return list_.boolean(object);
            case Kind::Integer:
                return list_.integer(object);
            case Kind::Real:
                return list_.real(object);
            case Kind::Date:
                return NSDate::dateWithTimeIntervalSinceReferenceDate(list_.date(object));
            case Kind::UID:
                throw PropertyListError("a UID, which only archives hold", list_.offset(object));
            default:
                break;
        }
        // Short text is copied: remembering it costs more.
        constexpr std::size_t kCopiedBytesMax = 15;
        if (list_.kind(object) == Kind::String && list_.size(object) <= kCopiedBytesMax) {
            return text(object);
        }
        if (const auto found = made_.find(object); found != made_.end()) return found->second;
        Value value = readShared(object);
        made_.emplace(object, value);
        return value;
    }

private:
    Value text(Index object) const {
        if (const auto ascii = list_.asciiString(object)) return *ascii;
        return list_.string(object);
    }

    Value readShared(Index object) {
        switch (list_.kind(object)) {
            case Kind::String:
                return Value::sharedString(list_.string(object));
            case Kind::Data:
                return Data{std::string(list_.data(object))};
            case Kind::Array:
                return readArray(object);
            default:
                return readDictionary(object);
        }
    }

    Value readArray(Index object) {
        ValueArray elements;
        elements.reserve(list_.size(object));
        for (std::size_t place = 0; place < list_.size(object); ++place)
            elements.push_back(read(list_.element(object, place)));
        return elements;
    }

    Value readDictionary(Index object) {
        std::vector<Dictionary::Entry> entries;
        entries.reserve(list_.size(object));
        for (std::size_t place = 0; place < list_.size(object); ++place) {
            entries.emplace_back(text(list_.key(object, place)), read(list_.value(object, place)));
        }
        return Dictionary::fromEntries(std::move(entries));
    }

    const BinaryPropertyList& list_;
    std::unordered_map<Index, Value> made_;
};

// Adds values to a list, and knows the way to the one at hand.
class ValueWriter {
public:
    std::string write(const Value& value) { return writer_.finish(add(value)); }

private:
    WriterIndex add(const Value& value) {
        switch (value.kind()) {
            case Value::Kind::Boolean:
                return writer_.addBoolean(*value.ifBoolean());
            case Value::Kind::Signed:
                return writer_.addInteger(*value.ifSigned());
            case Value::Kind::Unsigned:
                return writer_.addUnsigned(*value.ifUnsigned());
            case Value::Kind::Double:
                return writer_.addReal(*value.ifDouble());
            case Value::Kind::String:
                return addText(*value.ifString());
            case Value::Kind::Data:
                return writer_.addData(value.ifData()->bytes);
            case Value::Kind::Date:
                return addDate(*value.ifDate());
            case Value::Kind::Array:
                return addArray(*value.ifArray());
            case Value::Kind::Dictionary:
                return addDictionary(*value.ifDictionary());
            case Value::Kind::Null:
                fail("null is in no property list");
            case Value::Kind::Set:
                fail("a set is in no property list");
            case Value::Kind::Object:
                fail("an object of class " + value.object()->isa().name() +
                     " is in no property list");
        }
        return 0;
    }

    WriterIndex addText(const std::string& text) {
        try {
            return writer_.addString(text);
        } catch (const PropertyListError& error) {
            fail(error.reason());
        }
    }

    WriterIndex addDate(NSDate date) {
        const double seconds = date.timeIntervalSinceReferenceDate();
        if (seconds != seconds) fail("a date that is not a number");
        return writer_.addDate(seconds);
    }

    WriterIndex addArray(const ValueArray& array) {
        const WriterIndex index = enter();
        std::vector<WriterIndex> elements;
        elements.reserve(array.size());
        for (std::size_t place = 0; place < array.size(); ++place) {
            path_.back().place = place;
            elements.push_back(add(array[place]));
        }
        path_.pop_back();
        writer_.setArray(index, elements);
        return index;
    }

    WriterIndex addDictionary(const Dictionary& dictionary) {
        const WriterIndex index = enter();
        std::vector<WriterIndex> keys;
        std::vector<WriterIndex> values;
        keys.reserve(dictionary.size());
        values.reserve(dictionary.size());
        for (const auto& [key, value] : dictionary) {
            if (key.ifString() == nullptr) fail("a key that is no text");
            path_.back().key = key.ifString();
            keys.push_back(addText(*key.ifString()));
            values.push_back(add(value));
        }
        path_.pop_back();
        writer_.setDictionary(index, keys, values);
        return index;
    }

    WriterIndex enter() {
        if (path_.size() == kPropertyListDepthMax) fail("containers nested too deep");
        path_.push_back({});
        return writer_.reserve();
    }

    [[noreturn]] void fail(const std::string& reason) const {
        std::string path;
        for (const Step& step : path_) {
            path += step.key ? '"' + *step.key + '"' : '[' + std::to_string(step.place) + ']';
        }
        throw PropertyListError(reason, path);
    }

    // Where in each open container: a key, or a place in an array.
    struct Step {
        const std::string* key = nullptr;
        std::size_t place = 0;
    };

    BinaryPropertyListWriter writer_;
    std::vector<Step> path_;
};

}  // namespace

Value propertyListFromData(std::string_view bytes) {
    const BinaryPropertyList list(bytes);
    return propertyListValue(list, list.top());
}

Value propertyListValue(const BinaryPropertyList& list, Index object) {
    return ValueReader(list).read(object);
}

std::string dataFromPropertyList(const Value& value) {
    return ValueWriter().write(value);
}

}  // namespace sevrin::platform
