// What all locations have in common: the path once worked out, what lies in the folder, making it.
#include "Common/Source/Utilities/SVPath.h"

#include <utility>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/Logger.h"
#include "Common/Source/Utilities/SVException.h"
#include "Platform/Assertion.h"
#include "Platform/Format.h"
#include "Platform/NSFileManager.h"
#include "Platform/PathString.h"

namespace sevrin {

using platform::Dictionary;
using platform::NSCoder;
using platform::NSCodingClass;
using platform::NSErrorPtr;
using platform::NSFileManager;
using platform::NSURL;
using platform::NSURLPtr;
using platform::Value;

namespace {

constexpr std::string_view kAttributesKey = "attrs";

// Archives name the class before this program has mentioned it.
[[maybe_unused]] const platform::Class& registered = SVPath::classObject();

const NSFileManager& fileManager() {
    return NSFileManager::defaultManager();
}

// What is known about the item at the path, a link not followed; nothing when there is none.
std::optional<Dictionary> attributesOf(std::string_view path) {
    auto answer = fileManager().attributesOfItemAtPath(path);
    if (auto* const attributes = std::get_if<Dictionary>(&answer)) return std::move(*attributes);
    return std::nullopt;
}

void logAttributes(const LogLineIdentifierPtr& line, const Dictionary& attributes) {
    LoggerInUse()->logMapInLineDictionary(LogClassification::Details, nullptr, line, attributes);
}

}  // namespace

SVPathPtr SVPath::initWithAttributes(Attributes attributes) {
    return std::make_shared<SVPath>(Passkey{}, std::move(attributes));
}

SVPath::SVPath(Passkey, Attributes attributes) : createAttributes_(std::move(attributes)) {}

SVPath::~SVPath() = default;

void SVPath::setCreateAttributes(Attributes attributes) {
    createAttributes_ = std::move(attributes);
}

std::optional<std::string> SVPath::constructPath() {
    return std::nullopt;
}

const std::optional<std::string>& SVPath::path() {
    if (!resolvedPath_) resolvedPath_ = constructPath();
    return resolvedPath_;
}

const std::shared_ptr<KTDirectory>& SVPath::directory() {
    if (!resolvedDirectory_ && path()) resolvedDirectory_ = KTDirectory::directoryWithPath(*path());
    return resolvedDirectory_;
}

std::shared_ptr<KTFileInfo> SVPath::infoForFile(std::string_view name) {
    return directory() ? directory()->infoForName(name) : nullptr;
}

NSURLPtr SVPath::url() {
    if (resolvedDirectory_) return resolvedDirectory_->url();
    return path() ? NSURL::fileURLWithPath(*path()) : nullptr;
}

bool SVPath::exists() {
    bool isDirectory = false;
    return path() && fileManager().fileExistsAtPathIsDirectory(*path(), isDirectory) && isDirectory;
}

std::optional<std::string> SVPath::pathToFile(std::string_view name) {
    if (!path()) return std::nullopt;
    return platform::stringByAppendingPathComponent(*path(), name);
}

NSURLPtr SVPath::urlToFile(std::string_view name) {
    const auto file = pathToFile(name);
    return file ? NSURL::fileURLWithPath(*file) : nullptr;
}

bool SVPath::containsFile(std::string_view name) {
    const auto file = pathToFile(name);
    return file && fileManager().fileExistsAtPath(*file);
}

void SVPath::create() {
    MadeFolders made;
    createAll(made);
    logMade(made);
}

void SVPath::createAll(MadeFolders& made) {
    createFolder(made);
}

void SVPath::logMade(const MadeFolders& made) {
    for (const std::string& folder : made)
        Logger::logFormat(LogClassification::Minutia, "Created folder %@", folder);
}

void SVPath::createFolder(MadeFolders& made) {
    if (exists()) return;
    SEVRIN_ASSERT(path(), "a location without a folder cannot create one");
    const NSErrorPtr error = fileManager().createDirectoryAtPath(
        *path(), false, createAttributes_.value_or(Dictionary()));
    if (!error) {
        made.push_back(*path());
    } else if (!exists()) {  // Else another process was quicker.
        logMade(made);
        failCreating(error);
    }
}

// Notes what stands in the way, or what is missing, before the exception that knows only the path.
void SVPath::failCreating(const NSErrorPtr& error) {
    const LogLineIdentifierPtr line = Logger::logMessageError(
        LogClassification::Failure, std::string("Cannot create support folder"), error);
    Logger::logInLineKeyValue(LogClassification::Details, line, "Folder", *path());

    if (const auto attributes = attributesOf(*path())) {
        const LogLineIdentifierPtr item = Logger::logInLineMessage(
            LogClassification::Plain, line,
            "Item already exists; probably a file where a folder should be");
        logAttributes(item, *attributes);
    } else {
        const std::string enclosing(platform::dirname(*path()));
        const LogLineIdentifierPtr folder = Logger::logInLineKeyValue(
            LogClassification::Details, line, "Enclosing folder", enclosing);
        if (const auto found = attributesOf(enclosing)) {
            logAttributes(folder, *found);
        } else {
            Logger::logInLineMessage(LogClassification::Failure, folder,
                                     "Enclosing folder does not exist");
        }
    }
    SVException::exceptionWithNameReason("IO", "Cannot create support folder")
        .setFolder(*path())
        .raise();
}

std::string SVPath::description() const {
    // Asking for the path is what fills it in, and describes the location no differently.
    auto& self = const_cast<SVPath&>(*this);
    return platform::stringWithFormat("%@.%p { path=%@ }", isa().name(),
                                      static_cast<const void*>(this),
                                      self.path() ? Value(*self.path()) : Value());
}

platform::Class& SVPath::classObject() {
    static NSCodingClass& theClass = *new NSCodingClass(
        "SVPath", &platform::Object::classObject(),
        [](NSCoder& coder) -> platform::ObjectPtr { return SVPath::initWithCoder(coder); });
    return theClass;
}

SVPathPtr SVPath::initWithCoder(NSCoder& coder) {
    return initWithAttributes(decodeAttributes(coder));
}

void SVPath::encodeWithCoder(NSCoder& coder) const {
    coder.encodeObjectForKey(createAttributes_ ? Value(*createAttributes_) : Value(),
                             kAttributesKey);
}

SVPath::Attributes SVPath::decodeAttributes(NSCoder& coder) {
    // Every location is decoded by way of this first.
    if (!coder.allowsKeyedCoding()) coder.failDecoding("a location without keys");
    const Value attributes = coder.decodePropertyListForKey(kAttributesKey);
    if (attributes.isNull()) return std::nullopt;
    const Dictionary* const dictionary = attributes.ifDictionary();
    if (dictionary == nullptr) coder.failDecoding("attributes that are no dictionary");
    return *dictionary;
}

}  // namespace sevrin
