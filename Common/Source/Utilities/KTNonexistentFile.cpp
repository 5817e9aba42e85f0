// What is known about nothing.
#include "Common/Source/Utilities/KTNonexistentFile.h"

#include "Common/Source/Utilities/KTDirectory.h"

namespace sevrin {

KTFileInfoPtr KTNonexistentFile::initWithPathObject(const KTPathPtr& path) {
    return std::make_shared<KTNonexistentFile>(Passkey{}, Origin{platform::VNON, path});
}

std::int32_t KTNonexistentFile::deviceID() const {
    const KTDirectoryPtr directory = pathObject()->directoryInfo();
    const KTDirectoryPtr parent = directory ? directory->livingParent() : nullptr;
    return parent ? parent->deviceID() : 0;
}

}  // namespace sevrin
