// Making paths, and the forms and comparisons that need no file system.
#include "Common/Source/Utilities/KTPath.h"

#include <cstring>
#include <functional>
#include <mutex>
#include <utility>

#include "Platform/Assertion.h"
#include "Platform/FileCalls.h"
#include "Platform/Format.h"
#include "Platform/PathString.h"

namespace sevrin {

using platform::NSURL;
using platform::NSURLPtr;

KTPath::KTPath(Passkey, CStringPtr name, CStringPtr path, NSURLPtr url)
    : cPath_(std::move(path)), cName_(std::move(name)), url_(std::move(url)) {}

KTPath::~KTPath() = default;

KTPathPtr KTPath::pathWithPath(std::string_view path) {
    return initWithPath(path);
}

KTPathPtr KTPath::pathWithURL(const NSURLPtr& url) {
    return initWithURL(url);
}

std::vector<KTPathPtr> KTPath::arrayFromPathsOrURLs(std::span<const platform::Value> elements) {
    std::vector<KTPathPtr> paths;
    for (const platform::Value& element : elements) {
        if (const std::string* path = element.ifString()) {
            paths.push_back(pathWithPath(*path));
        } else if (const auto url = element.object<NSURL>()) {
            paths.push_back(pathWithURL(url));
        }
    }
    return paths;
}

KTPathPtr KTPath::initWithCPath(const char* path) {
    SEVRIN_ASSERT(path != nullptr, "a path is made of bytes");
    return initAssumingNamePath(makeCString(platform::basename(path)), makeCString(path));
}

KTPathPtr KTPath::initWithPath(std::string_view path) {
    CStringPtr cPath = makeCString(path);
    CStringPtr cName = makeCString(platform::basename(cPath.get()));
    return initAssumingNamePath(std::move(cName), std::move(cPath));
}

KTPathPtr KTPath::initWithCNameParentPath(const char* name, const KTPath& parent) {
    SEVRIN_ASSERT(name != nullptr, "a name is made of bytes");
    return initAssumingNamePath(makeCString(name), makeJoinedCString(parent.cPath(), name));
}

KTPathPtr KTPath::initWithCPathRelativeToPath(const char* path, const KTPathPtr& base) {
    SEVRIN_ASSERT(path != nullptr && base != nullptr, "a relative path is relative to another");
    if (*path == '\0') return base;
    if (*path == '/') return initWithCPath(path);
    const CStringPtr joined = makeJoinedCString(base->cPath(), path);
    if (*path != '.') return initWithCPath(joined.get());
    return initWithPath(platform::realPath(joined.get()).value_or(joined.get()));
}

KTPathPtr KTPath::initWithURL(const NSURLPtr& url) {
    SEVRIN_ASSERT(url != nullptr, "a path of a URL has a URL");
    CStringPtr cPath = makeCString(url->path());
    CStringPtr cName = makeCString(platform::basename(cPath.get()));
    return std::make_shared<KTPath>(Passkey{}, std::move(cName), std::move(cPath), url);
}

KTPathPtr KTPath::initWithPathObject(const KTPath& other) {
    return std::make_shared<KTPath>(Passkey{}, makeCString(other.cName()),
                                    makeCString(other.cPath()), other.madeURL());
}

KTPathPtr KTPath::initAssumingNamePath(CStringPtr name, CStringPtr path) {
    SEVRIN_ASSERT(name != nullptr && path != nullptr, "a path has a name and its bytes");
    return std::make_shared<KTPath>(Passkey{}, std::move(name), std::move(path));
}

KTPathPtr KTPath::copy() const {
    return initWithPathObject(*this);
}

NSURLPtr KTPath::madeURL() const {
    const std::lock_guard guard(pathLock_);
    return url_;
}

NSURLPtr KTPath::url() const {
    const std::lock_guard guard(pathLock_);
    if (!url_) url_ = NSURL::fileURLWithPath(path_nonblocking());
    return url_;
}

void KTPath::flushInfo() {
    const std::lock_guard guard(pathLock_);
    url_.reset();
}

void KTPath::flushResourceValues() const {
    if (const NSURLPtr url = madeURL()) url->removeAllCachedResourceValues();
}

std::string KTPath::extension() const {
    return std::string(platform::pathExtension(cName_.get()));
}

KTPathPtr KTPath::parent() const {
    return initWithPath(platform::dirname(cPath()));
}

KTPathPtr KTPath::pathOfChild(std::string_view name) const {
    return initWithCNameParentPath(makeCString(name).get(), *this);
}

KTPathPtr KTPath::relativePath(std::string_view path) {
    if (path.empty()) return shared_from_this();
    return initWithCPathRelativeToPath(makeCString(path).get(), shared_from_this());
}

std::string KTPath::pathRelativeToPath(const KTPath& base) const {
    if (isEqual(base)) return {};
    const std::string_view path = cPath();
    const std::string_view head = base.cPath();
    if (head.empty() || !path.starts_with(head)) return std::string(path);
    if (head.ends_with('/')) return std::string(path.substr(head.size()));
    if (path[head.size()] == '/') return std::string(path.substr(head.size() + 1));
    return std::string(path);
}

std::shared_ptr<KTDirectory> KTPath::directoryInfo() const {
    const std::lock_guard guard(pathLock_);
    return directory_.lock();
}

void KTPath::setDirectoryInfo(const std::shared_ptr<KTDirectory>& directory) {
    const std::lock_guard guard(pathLock_);
    directory_ = directory;
}

bool KTPath::claimDirectoryInfo(const std::shared_ptr<KTDirectory>& directory) {
    const std::lock_guard guard(pathLock_);
    if (!directory_.expired()) return directory_.lock() == directory;
    directory_ = directory;
    return true;
}

void KTPath::withdrawDirectoryInfo(const std::weak_ptr<KTFileInfo>& directory) {
    const std::lock_guard guard(pathLock_);
    if (directory_.owner_before(directory) || directory.owner_before(directory_)) return;
    directory_.reset();
}

int KTPath::compare(const platform::Object& other) const {
    const auto* path = dynamic_cast<const KTPath*>(&other);
    if (path == nullptr) return -1;
    const int order = std::strcmp(cPath(), path->cPath());
    return (order > 0) - (order < 0);
}

bool KTPath::isEqual(const platform::Object& other) const {
    const auto* path = dynamic_cast<const KTPath*>(&other);
    return path != nullptr && std::strcmp(cPath(), path->cPath()) == 0;
}

bool KTPath::isEqual(std::string_view path) const {
    return path == cPath();
}

std::size_t KTPath::hash() const {
    return std::hash<std::string_view>{}(cPath());
}

std::string KTPath::description() const {
    return platform::stringWithFormat("%@(%@)", Object::description(), path());
}

}  // namespace sevrin
