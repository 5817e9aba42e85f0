// Exchanging two items.
#include "Common/Source/Utilities/PathSwap.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTVolumeInfo.h"
#include "Common/Source/Utilities/Logger.h"
#include "Common/Source/Utilities/PathFolder.h"
#include "Common/Source/Utilities/SVException.h"
#include "Platform/FileCalls.h"
#include "Platform/Format.h"
#include "Platform/NSException.h"

namespace sevrin {

namespace {

// The volume that holds the item, which for a link is that of the directory it is in; nullptr when
// it cannot be told.
KTVolumeInfoPtr volumeOf(const KTPath& item) try {
    if (const KTDirectoryPtr directory = item.directoryInfo()) return directory->volumeInfo();
    const KTFileInfoPtr info = KTFileInfo::infoForPathObject(item.copy());
    return info ? info->volumeInfo() : nullptr;
} catch (const platform::NSException&) {
    return nullptr;
}

// Tries one of the ways with one call; whether it did it.
bool trySwap(const SwapMethods::Call& call, const char* format, const KTPath& item,
             const KTPath& other) {
    if (!call) return false;
    if (call(item.cPath(), other.cPath()) == 0) return true;
    const int error = errno;
    Logger::logFormat(LogClassification::Debug, format, "-[KTPath swapWith:]", item.path(),
                      other.path(), error, std::strerror(error));
    return false;
}

// A name beside the item at which nothing is, not even a link.
KTPathPtr temporaryPathFor(const KTPath& item, const SwapMethods& methods) {
    constexpr std::size_t kNameMax = 254;  // bytes; the longest that every file system takes
    const KTPathPtr folder = folderOf(item);
    for (;;) {
        std::string name =
            platform::stringWithFormat("_xchng_%08x_%s", methods.randomNumber(), item.cName());
        name.resize(std::min(name.size(), kNameMax));
        KTPathPtr path = folder->pathOfChild(name);
        struct stat found {};
        if (::lstat(path->cPath(), &found) != 0) return path;
    }
}

[[noreturn]] void raiseFailure(const KTPath& item, const KTPath& other) {
    SVException::ioErrnoWithReason("cannot exchange files")
        .setAPI("rename")
        .setPathObject(item)
        .setDetailKey(other.path(), "with")
        .raise();
}

void swapByRenaming(const KTPath& item, const KTPath& other, const SwapMethods& methods) {
    const KTPathPtr temporary = temporaryPathFor(item, methods);
    if (methods.rename(other.cPath(), temporary->cPath()) != 0) raiseFailure(item, other);
    if (methods.rename(item.cPath(), other.cPath()) != 0) {
        static_cast<void>(methods.rename(temporary->cPath(), other.cPath()));
        raiseFailure(item, other);
    }
    if (methods.rename(temporary->cPath(), item.cPath()) != 0) raiseFailure(item, other);
}

}  // namespace

SwapMethods SwapMethods::forItem(const KTPath& item) {
    const KTVolumeInfoPtr volume = volumeOf(item);
    SwapMethods methods;
    if (volume && volume->hasSwapping()) {
        methods.swapNames = [](const char* path, const char* with) {
            return platform::renamex_np(path, with, platform::RENAME_SWAP);
        };
    }
    if (volume && volume->hasExchangeData()) {
        methods.exchangeData = [](const char* path, const char* with) {
            return platform::exchangedata(path, with, 0);
        };
    }
    methods.rename = [](const char* from, const char* to) { return ::rename(from, to); };
    methods.randomNumber = [] { return platform::arc4random(); };
    return methods;
}

void swapItems(const KTPath& item, const KTPath& other, const SwapMethods& methods) {
    if (trySwap(methods.swapNames, "%s renamex_np('%@','%@') failed; errno=%d (%s)", item, other) ||
        trySwap(methods.exchangeData, "%s exchangedata('%@','%@') failed; errno=%d (%s)", item,
                other)) {
        return;
    }
    swapByRenaming(item, other, methods);
}

}  // namespace sevrin
