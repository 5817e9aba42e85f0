// What a volume object tells from what it holds, or asks for when it is first wanted.
#include <limits>
#include <mutex>
#include <string>
#include <utility>
#include <variant>

#include "Common/Source/Utilities/BSDTimeSpec.h"
#include "Common/Source/Utilities/KTVolumeInfo.h"
#include "Common/Source/Utilities/Logger.h"
#include "Platform/Format.h"
#include "Platform/NSFileManager.h"

namespace sevrin {

using platform::NSErrorPtr;
using platform::Value;

std::string KTVolumeInfo::deviceName() const {
    const std::lock_guard guard(propLock_);
    if (!deviceName_) deviceName_ = cDeviceName();
    return *deviceName_;
}

std::int64_t KTVolumeInfo::freeBytes() const {
    const std::lock_guard guard(propLock_);
    return freeBytes_;
}

std::int64_t KTVolumeInfo::availableBytes() const {
    const std::lock_guard guard(propLock_);
    return availBytes_ != 0 ? availBytes_ : freeBytes_;
}

std::int64_t KTVolumeInfo::maxFileSize() const {
    if (!has2TBFiles()) return std::int64_t{1} << 32;  // On purpose not one byte less.
    const std::uint64_t bits = pathObj_->fileSizeBits();
    if (bits == 0) return 0;
    if (bits >= 63) return std::numeric_limits<std::int64_t>::max();
    return (std::int64_t{1} << bits) - 1;
}

const char* KTVolumeInfo::uuidCStr() const {
    const std::lock_guard guard(propLock_);
    if (!uuidStr_ && uuid_ != UUID{}) {
        std::string text;
        for (std::size_t i = 0; i < uuid_.size(); ++i) {
            if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
            text += platform::stringWithFormat("%02X", uuid_[i]);
        }
        uuidStr_ = makeCString(text);
    }
    return uuidStr_.get();
}

std::string KTVolumeInfo::syntheticUUID() const {
    if (const char* const text = uuidCStr()) return text;
    return platform::stringWithFormat("FSID-%04x-%04x", stat_.f_fsid.val[0], stat_.f_fsid.val[1]);
}

std::optional<platform::Dictionary> KTVolumeInfo::nsAttributes() const {
    std::variant<platform::Dictionary, NSErrorPtr> answer;
    {
        const std::lock_guard guard(propLock_);
        if (nsAttributes_) return nsAttributes_;
        answer = platform::NSFileManager::defaultManager().attributesOfFileSystemForPath(path());
        if (auto* const attributes = std::get_if<platform::Dictionary>(&answer)) {
            nsAttributes_ = std::move(*attributes);
            return nsAttributes_;
        }
    }
    Logger::logFormat(LogClassification::Debug,
                      "%s problem obtaining NSFileManager attributes for filesystem at %@: %@",
                      "-[KTVolumeInfo nsAttributes]", path(), std::get<NSErrorPtr>(answer));
    return std::nullopt;
}

Value KTVolumeInfo::wholeDeviceIdentifier() const {
    const std::optional<platform::Dictionary> attributes = nsAttributes();
    const Value* const number =
        attributes ? attributes->find(platform::NSFileSystemNumber) : nullptr;
    return number == nullptr ? Value() : *number;
}

platform::NSDate KTVolumeInfo::createdDate() const {
    return newCFDateWithBSDTimeSpec(createTimeSpec_);
}

// The sizes of the platform's numbers are the volume's: 32 bits each.
std::size_t KTVolumeInfo::hash() const {
    const auto [first, second] = stat_.f_fsid.val;
    return static_cast<std::size_t>(static_cast<std::uint64_t>(std::int64_t{first}) +
                                    (static_cast<std::uint64_t>(std::int64_t{second}) << 32));
}

bool KTVolumeInfo::isEqual(const platform::Object& other) const {
    const auto* const volume = dynamic_cast<const KTVolumeInfo*>(&other);
    return volume != nullptr && volume->stat_.f_fsid.val[0] == stat_.f_fsid.val[0] &&
           volume->stat_.f_fsid.val[1] == stat_.f_fsid.val[1];
}

std::string KTVolumeInfo::description() const {
    return platform::stringWithFormat("%@(\"%@\",%@)", isa().name(), displayName(), path());
}

}  // namespace sevrin
