// A URL kept as text.
#include "Platform/ArchivedURL.h"

#include <functional>
#include <utility>

#include "Platform/Class.h"

namespace sevrin::platform {

ArchivedURL::ArchivedURL(std::string relativeString, ObjectPtr base)
    : relativeString_(std::move(relativeString)), base_(std::move(base)) {}

Class& ArchivedURL::classObject() {
    static Class& theClass = *new Class("ArchivedURL", &Object::classObject(), {});
    return theClass;
}

const Class& ArchivedURL::isa() const {
    return classObject();
}

std::string ArchivedURL::description() const {
    return base_ ? relativeString_ + " -- " + base_->description() : relativeString_;
}

bool ArchivedURL::isEqual(const Object& other) const {
    const auto* url = dynamic_cast<const ArchivedURL*>(&other);
    if (url == nullptr || url->relativeString_ != relativeString_) return false;
    if (!base_ || !url->base_) return base_ == url->base_;
    return base_->isEqual(*url->base_);
}

std::size_t ArchivedURL::hash() const {
    return std::hash<std::string>{}(relativeString_);
}

}  // namespace sevrin::platform
