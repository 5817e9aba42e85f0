// The text of symbolic links.
#include "Common/Source/Utilities/KTSymbolicLink.h"

#include <unistd.h>

#include <array>
#include <cstring>
#include <mutex>
#include <string_view>
#include <utility>

#include "Common/Source/Utilities/PathFolder.h"
#include "Common/Source/Utilities/SVException.h"
#include "Platform/Assertion.h"

namespace sevrin {

std::shared_ptr<KTSymbolicLink> KTSymbolicLink::asSymbolicLink() {
    return std::static_pointer_cast<KTSymbolicLink>(shared_from_this());
}

const char* KTSymbolicLink::contents() const {
    const std::lock_guard guard(attrLock_);
    if (!contents_) {
        std::array<char, 1025> text;
        const ssize_t length = ::readlink(cPath(), text.data(), text.size());
        if (length < 0) {
            SVException::ioErrnoWithReason("cannot read content of symbolic link")
                .setFileInfo(*this)
                .raise();
        }
        contents_ = makeCString({text.data(), static_cast<std::size_t>(length)});
    }
    return contents_.get();
}

void KTSymbolicLink::setContents(const char* text) {
    SEVRIN_ASSERT(text != nullptr, "a link has a text");
    CStringPtr copy = makeCString(text);
    {
        const std::lock_guard guard(attrLock_);
        contents_.reset();
    }
    if (exists()) deleteFile();
    if (::symlink(copy.get(), cPath()) != 0) {
        SVException::ioErrnoWithReason("cannot write content of symbolic link")
            .setFileInfo(*this)
            .raise();
    }
    const std::lock_guard guard(attrLock_);
    contents_ = std::move(copy);
}

// The volume of the link's own path would be that of what it leads to.
KTVolumeInfoPtr KTSymbolicLink::volumeInfo() const {
    return folderOf(*pathObject())->volumeInfo();
}

std::int64_t KTSymbolicLink::dataLength() const {
    return static_cast<std::int64_t>(std::strlen(contents()));
}

}  // namespace sevrin
