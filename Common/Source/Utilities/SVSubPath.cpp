// A chain of folder names, and at its outer end a location of another kind.
#include "Common/Source/Utilities/SVSubPath.h"

#include <algorithm>
#include <utility>

#include "Platform/DeferredRelease.h"

namespace sevrin {

using platform::Dictionary;
using platform::NSCoder;
using platform::NSCodingClass;
using platform::Value;

namespace {

constexpr std::string_view kEnclosingKey = "enclosing";
constexpr std::string_view kFolderKey = "folder";

// Archives name the class before this program has mentioned it.
[[maybe_unused]] const platform::Class& registered = SVSubPath::classObject();

}  // namespace

SVSubPathPtr SVSubPath::initWithNameInPath(std::string_view name, SVPathPtr enclosing) {
    return initWithNameInPathWithAttributes(name, std::move(enclosing), std::nullopt);
}

SVSubPathPtr SVSubPath::initWithNameInPathWithAttributes(std::string_view name, SVPathPtr enclosing,
                                                         Attributes attributes) {
    return std::make_shared<SVSubPath>(Passkey{}, std::string(name), std::move(enclosing),
                                       std::move(attributes));
}

SVSubPath::SVSubPath(Passkey key, std::string name, SVPathPtr enclosing, Attributes attributes)
    : SVPath(key, std::move(attributes)),
      enclosingPath_(std::move(enclosing)),
      folderName_(std::move(name)) {}

SVSubPath::~SVSubPath() {
    Dictionary held;
    held.set(kEnclosingKey, std::move(enclosingPath_));
    platform::releaseWithoutRecursion(std::move(held));
}

std::vector<SVSubPath*> SVSubPath::chain() {
    std::vector<SVSubPath*> links;
    for (SVSubPath* link = this; link != nullptr;
         link = dynamic_cast<SVSubPath*>(link->enclosingPath_.get()))
        links.push_back(link);
    std::reverse(links.begin(), links.end());
    return links;
}

// From the nearest location that has its path already, or is none of these, in one step: a path for
// each in between would take the square of the depth.
std::optional<std::string> SVSubPath::constructPath() {
    std::vector<std::string_view> names{folderName_};
    SVPath* enclosing = enclosingPath_.get();
    for (auto* link = dynamic_cast<SVSubPath*>(enclosing); link && !link->resolvedPath();
         link = dynamic_cast<SVSubPath*>(enclosing)) {
        names.push_back(link->folderName_);
        enclosing = link->enclosingPath_.get();
    }
    std::string below;
    for (auto name = names.rbegin(); name != names.rend(); ++name)
        below.append(below.empty() ? "" : "/").append(*name);
    return enclosing->pathToFile(below);
}

void SVSubPath::createAll(MadeFolders& made) {
    const std::vector<SVSubPath*> links = chain();
    createAllOf(*links.front()->enclosingPath_, made);
    for (SVSubPath* const link : links)
        link->createFolder(made);
}

platform::Class& SVSubPath::classObject() {
    static NSCodingClass& theClass = *new NSCodingClass(
        "SVSubPath", &SVPath::classObject(),
        [](NSCoder& coder) -> platform::ObjectPtr { return SVSubPath::initWithCoder(coder); });
    return theClass;
}

SVSubPathPtr SVSubPath::initWithCoder(NSCoder& coder) {
    Attributes attributes = decodeAttributes(coder);
    auto enclosing = std::dynamic_pointer_cast<SVPath>(
        coder.decodeObjectOfClassForKey(SVPath::classObject(), kEnclosingKey));
    if (!enclosing) coder.failDecoding("a folder within no location");
    const Value name = coder.decodeObjectForKey(kFolderKey);
    if (name.ifString() == nullptr) coder.failDecoding("a folder whose name is no text");
    return initWithNameInPathWithAttributes(*name.ifString(), std::move(enclosing),
                                            std::move(attributes));
}

void SVSubPath::encodeWithCoder(NSCoder& coder) const {
    SVPath::encodeWithCoder(coder);
    coder.encodeObjectForKey(enclosingPath_, kEnclosingKey);
    coder.encodeObjectForKey(folderName_, kFolderKey);
}

}  // namespace sevrin
