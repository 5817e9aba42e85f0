// `switchboardctl path volumes`: the mounted volumes, their sizes, flags and capabilities.
#include <fmt/format.h>

#include "Common/Source/Utilities/KTVolumeInfo.h"
#include "tools/FactSheet.h"
#include "tools/ItemText.h"
#include "tools/Verbs/PathActions.h"

namespace sevrin {

using platform::NSException;
using platform::Value;

namespace {

using Query = bool (KTVolumeInfo::*)() const;

struct Capability {
    const char* name;
    Query has;
};

constexpr Capability kFormatCapabilities[] = {
    {"persistent_objects", &KTVolumeInfo::hasPersistentObjects},
    {"symbolic_links", &KTVolumeInfo::hasSymbolicLinks},
    {"hard_links", &KTVolumeInfo::hasHardLinks},
    {"journal", &KTVolumeInfo::hasJournal},
    {"active_journal", &KTVolumeInfo::hasActiveJournal},
    {"unreliable_root_times", &KTVolumeInfo::hasUnreliableRootTimes},
    {"sparse_files", &KTVolumeInfo::hasSparseFiles},
    {"zero_runs", &KTVolumeInfo::hasZeroRuns},
    {"case_sensitive", &KTVolumeInfo::isCaseSensitive},
    {"case_preserving", &KTVolumeInfo::isCasePreserving},
    {"fast_statfs", &KTVolumeInfo::hasFastStatfs},
    {"2tb_files", &KTVolumeInfo::has2TBFiles},
    {"open_deny", &KTVolumeInfo::hasOpenDeny},
    {"hidden_files", &KTVolumeInfo::hasHiddenFiles},
    {"path_from_id", &KTVolumeInfo::hasPathFromID},
    {"volume_sizes", &KTVolumeInfo::hasVolumeSizes},
    {"64bit_objects", &KTVolumeInfo::has64BitObjects},
};

constexpr Capability kInterfaceCapabilities[] = {
    {"getattrlist", &KTVolumeInfo::hasGetAttrList},
    {"getdirentriesattr", &KTVolumeInfo::hasGetDirEntriesAttr},
    {"exchange_data", &KTVolumeInfo::hasExchangeData},
    {"preallocation", &KTVolumeInfo::hasPreallocation},
    {"rename", &KTVolumeInfo::canRename},
    {"advisory_locking", &KTVolumeInfo::hasAdvisoryLocking},
    {"file_locking", &KTVolumeInfo::hasFileLocking},
    {"mandatory_locking", &KTVolumeInfo::hasMandatoryLocking},
    {"acls", &KTVolumeInfo::hasACLs},
    {"user_access", &KTVolumeInfo::hasUserAccess},
    {"extended_attributes", &KTVolumeInfo::hasExtendedAttributes},
    {"file_cloning", &KTVolumeInfo::hasFileCloning},
    {"snapshots", &KTVolumeInfo::hasSnapshots},
    {"swapping", &KTVolumeInfo::hasSwapping},
    {"exclusive_renaming", &KTVolumeInfo::hasExclusiveRenaming},
};

constexpr Capability kMountFlags[] = {
    {"writable", &KTVolumeInfo::isWritable},     {"local", &KTVolumeInfo::isLocal},
    {"exec", &KTVolumeInfo::allowsExec},         {"suid", &KTVolumeInfo::allowsSUID},
    {"ownership", &KTVolumeInfo::usesOwnership}, {"browsable", &KTVolumeInfo::isBrowsable},
};

struct AttributeGroup {
    const char* name;
    bool (KTVolumeInfo::*supports)(platform::attrgroup_t mask) const;
};

constexpr AttributeGroup kAttributeGroups[] = {
    {"common_attributes", &KTVolumeInfo::supportsTheseCommonAttributes},
    {"volume_attributes", &KTVolumeInfo::supportsTheseVolumeAttributes},
    {"directory_attributes", &KTVolumeInfo::supportsTheseDirectoryAttributes},
    {"file_attributes", &KTVolumeInfo::supportsTheseFileAttributes},
    {"native_common_attributes", &KTVolumeInfo::supportsTheseCommonAttributesNatively},
    {"native_volume_attributes", &KTVolumeInfo::supportsTheseVolumeAttributesNatively},
    {"native_directory_attributes", &KTVolumeInfo::supportsTheseDirectoryAttributesNatively},
    {"native_file_attributes", &KTVolumeInfo::supportsTheseFileAttributesNatively},
};

template <std::size_t count>
FactSheet::Choices choicesOf(const KTVolumeInfo& volume, const Capability (&capabilities)[count]) {
    FactSheet::Choices choices;
    for (const auto& [name, has] : capabilities)
        choices.emplace_back(name, (volume.*has)());
    return choices;
}

// All bits of the group that the volume answers for, one by one: it gives no more away.
std::string attributesText(const KTVolumeInfo& volume, const AttributeGroup& group) {
    std::uint32_t bits = 0;
    for (std::uint32_t bit = 1; bit != 0; bit <<= 1) {
        if ((volume.*group.supports)(bit)) bits |= bit;
    }
    return fmt::format("{:#010x}", bits);
}

void addIdentity(FactSheet& sheet, KTVolumeInfo& volume) {
    const struct platform::statfs& stat = volume.stat();
    sheet.addText("path", volume.path());
    sheet.addText("name", volume.name());
    sheet.addText("display_path", volume.displayPath());
    sheet.addText("type", volume.cFilesystemType());
    sheet.addText("device", volume.deviceName());
    sheet.addText("fsid",
                  fmt::format("{:08x}:{:08x}", static_cast<std::uint32_t>(stat.f_fsid.val[0]),
                              static_cast<std::uint32_t>(stat.f_fsid.val[1])));
    if (const char* const uuid = volume.uuidCStr()) {
        sheet.addText("uuid", uuid);
    } else {
        sheet.addNothing("uuid");
    }
    sheet.addText("synthetic_uuid", volume.syntheticUUID());
    sheet.addNumber("device_number", volume.wholeDeviceIdentifier());
    sheet.addNumber("mounted_by_id", stat.f_owner);
    sheet.addText("mounted_by", ownerName(stat.f_owner));
    sheet.addTime("created", volume.createdTimeSpec());
    const KTVolumeInfoPtr data = volume.dataVolumeInfo();
    if (data) {
        sheet.addText("data_volume", data->path());
    } else {
        sheet.addNothing("data_volume");
    }
}

void addSizes(FactSheet& sheet, const KTVolumeInfo& volume) {
    const struct platform::statfs& stat = volume.stat();
    sheet.addNumber("total", volume.totalBytes());
    sheet.addNumber("free", volume.freeBytes());
    sheet.addNumber("available", volume.availableBytes());
    sheet.addNumber("block_size", volume.blockSize());
    sheet.addNumber("transfer_size", volume.optimalXferSize());
    sheet.addNumber("files", stat.f_files);
    sheet.addNumber("files_free", stat.f_ffree);
    sheet.addNumber("file_size_max", volume.maxFileSize());
}

FactSheet factsOf(KTVolumeInfo& volume) {
    FactSheet sheet;
    addIdentity(sheet, volume);
    addSizes(sheet, volume);
    sheet.addText("mount_bits", fmt::format("{:#010x}", volume.stat().f_flags));
    sheet.addChoices("flags", choicesOf(volume, kMountFlags));
    sheet.addChoices("format", choicesOf(volume, kFormatCapabilities));
    sheet.addChoices("interfaces", choicesOf(volume, kInterfaceCapabilities));
    for (const AttributeGroup& group : kAttributeGroups)
        sheet.addText(group.name, attributesText(volume, group));
    return sheet;
}

void print(const Invocation& invocation, const std::vector<FactSheet>& sheets) {
    const CommonOptions& options = invocation.options();
    if (!options.columns.empty() && !sheets.empty()) {
        Columns columns(sheets.front().columns(), options.columns);
        for (const FactSheet& sheet : sheets)
            columns.fit(sheet.cells());
        invocation.answerHeader(columns);
        for (const FactSheet& sheet : sheets)
            invocation.answerRow(columns, sheet.cells(), sheet.record());
        return;
    }
    for (const FactSheet& sheet : sheets) {
        const char* const gap = &sheet == &sheets.front() ? "" : "\n";
        writeAnswer(options.isJson ? lineOf(sheet.record()) + '\n' : gap + sheet.text());
    }
}

}  // namespace

ExitStatus printVolumes(const Invocation& invocation, const PathOptions& options) {
    ExitStatus status = ExitStatus::Done;
    std::vector<KTVolumeInfoPtr> volumes;
    if (options.paths.empty())
        volumes =
            options.isBrowsable ? KTVolumeInfo::browsableVolumes() : KTVolumeInfo::allVolumes();
    for (const std::string& path : options.paths) {
        try {
            const KTVolumeInfoPtr volume = KTVolumeInfo::volumeInfoForPath(path);
            if (volume->isBrowsable() || !options.isBrowsable) volumes.push_back(volume);
        } catch (const NSException& exception) {
            complain(path, reasonOf(exception));
            status = ExitStatus::No;
        }
    }
    std::vector<FactSheet> sheets;
    for (const KTVolumeInfoPtr& volume : volumes)
        sheets.push_back(factsOf(*volume));
    print(invocation, sheets);
    return status;
}

}  // namespace sevrin
