// Paths whose bytes are put together late.
#include "Common/Source/Utilities/KTSubPath.h"

#include <mutex>
#include <utility>

#include "Platform/Assertion.h"

namespace sevrin {

KTSubPath::KTSubPath(Passkey key, CStringPtr name, CStringPtr path, KTPathPtr parent,
                     platform::NSURLPtr url)
    : KTPath(key, std::move(name), std::move(path), std::move(url)),
      parentPath_(std::move(parent)) {}

KTSubPathPtr KTSubPath::initAssumingCNameParentPath(CStringPtr name, KTPathPtr parent) {
    SEVRIN_ASSERT(name != nullptr && parent != nullptr, "a path within another has a name and it");
    return std::make_shared<KTSubPath>(Passkey{}, std::move(name), nullptr, std::move(parent));
}

// The parent goes with the copy: without it, an item of the copy would not find its directory.
KTPathPtr KTSubPath::copy() const {
    return std::make_shared<KTSubPath>(Passkey{}, makeCString(cName()), makeCString(cPath()),
                                       parentPath_, madeURL());
}

const char* KTSubPath::cPath() const {
    const std::lock_guard guard(pathLock_);
    return cPath_nonblocking();
}

// Takes the parent's lock under its own: from child to parent, never the other way.
const char* KTSubPath::cPath_nonblocking() const {
    if (!cPath_) cPath_ = makeJoinedCString(parentPath_->cPath(), cName());
    return cPath_.get();
}

}  // namespace sevrin
