// The preferences of this process: what its files hold, remembered as long as they stay the same,
// and what was set and is not written yet.
//
// Lookups ask the files' states every time, by one system call each, and read again what has
// changed. A value that was set lies over its file until it is written, so a failed attempt loses
// nothing. Waiting for other processes happens without our lock: lookups go on meanwhile.
#include "Platform/CFPreferences.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Platform/BinaryPropertyList.h"
#include "Platform/NSError.h"
#include "Platform/PathString.h"
#include "Platform/SearchPath.h"
#include "Platform/Text.h"
#include "Platform/linux/PatientFileLock.h"
#include "Platform/linux/PreferenceFile.h"

namespace sevrin::platform {

namespace {

using preferences::FileContent;
using preferences::FileIdentity;

// How long a writer waits for another one, which needs milliseconds unless it hangs.
constexpr std::chrono::milliseconds kLockPatience{2000};

constexpr std::string_view kFolder = "/Library/Preferences";
constexpr std::string_view kGlobalName = ".GlobalPreferences";

// What was set and is not written: null stands for a removal. Each change has a number of its own,
// so that one made while an earlier one is being written is not taken for it.
struct Change {
    Value value;
    std::uint64_t number = 0;
};
using Changes = std::map<std::string, Change, std::less<>>;
using Faults = std::vector<std::string>;

void checkDomain(std::string_view domain) {
    const auto isForbidden = [](char byte) {
        return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F || byte == '/';
    };
    bool isName = !domain.empty() && domain.front() != '.' && isValidUtf8(domain);
    for (const char byte : domain)
        isName = isName && !isForbidden(byte);
    if (!isName)
        throw std::invalid_argument("\"" + nonLossyAscii(domain) + "\" is no preference domain");
    if (domain.size() > kPreferenceDomainBytesMax)
        throw std::invalid_argument("a preference domain has at most " +
                                    std::to_string(kPreferenceDomainBytesMax) + " bytes");
}

void checkKey(std::string_view key) {
    if (!isValidUtf8(key)) throw std::invalid_argument("a preference key must be valid UTF-8");
}

std::string fileIn(const std::string& root, std::string_view domain) {
    std::string path = root;
    path += kFolder;
    path += '/';
    path += domain == kCFPreferencesAnyApplication ? kGlobalName : domain;
    return path += ".plist";
}

std::string userFile(std::string_view domain) {
    return fileIn(homeDirectory(), domain);
}

class Store {
public:
    Value copy(std::string_view key, std::string_view domain, Faults& faults) {
        const std::lock_guard guard(lock_);
        if (Value value = userValue(key, domain, faults); !value.isNull()) return value;
        const bool isGlobal = domain == kCFPreferencesAnyApplication;
        if (!isGlobal) {
            Value value = userValue(key, kCFPreferencesAnyApplication, faults);
            if (!value.isNull()) return value;
        }
        const std::string root = localRoot();
        if (Value value = valueIn(fileIn(root, domain), key, faults); !value.isNull()) return value;
        return isGlobal ? Value()
                        : valueIn(fileIn(root, kCFPreferencesAnyApplication), key, faults);
    }

    Dictionary copyMultiple(std::string_view domain, Faults& faults) {
        const std::lock_guard guard(lock_);
        Dictionary values = load(userFile(domain), faults);
        if (const auto changes = changes_.find(domain); changes != changes_.end())
            apply(changes->second, values);
        return values;
    }

    void set(std::string_view key, const Value& value, std::string_view domain) {
        const std::lock_guard guard(lock_);
        auto changes = changes_.find(domain);
        if (changes == changes_.end()) changes = changes_.emplace(domain, Changes()).first;
        changes->second.insert_or_assign(std::string(key), Change{value, ++lastNumber_});
    }

    [[nodiscard]] Changes changesOf(std::string_view domain) {
        const std::lock_guard guard(lock_);
        const auto found = changes_.find(domain);
        return found == changes_.end() ? Changes() : found->second;
    }

    // Drops the changes that are written, unless the key was changed again.
    void drop(const Changes& written, std::string_view domain) {
        const std::lock_guard guard(lock_);
        const auto changes = changes_.find(domain);
        if (changes == changes_.end()) return;
        for (const auto& [key, change] : written) {
            const auto found = changes->second.find(key);
            if (found != changes->second.end() && found->second.number == change.number)
                changes->second.erase(found);
        }
        if (changes->second.empty()) changes_.erase(changes);
    }

    // Puts the changes into `values`; answers whether that made a difference.
    static bool apply(const Changes& changes, Dictionary& values) {
        bool isDifferent = false;
        for (const auto& [key, change] : changes) {
            const Value* const before = values.find(std::string_view(key));
            if (change.value.isNull()) {
                isDifferent |= values.remove(key);
            } else if (before == nullptr || *before != change.value) {
                values.set(key, change.value);
                isDifferent = true;
            }
        }
        return isDifferent;
    }

private:
    struct Remembered {
        FileIdentity identity;
        Dictionary values;
        bool isReported = false;
    };

    Value userValue(std::string_view key, std::string_view domain, Faults& faults) {
        if (const auto changes = changes_.find(domain); changes != changes_.end()) {
            const auto change = changes->second.find(key);
            if (change != changes->second.end()) return change->second.value;
        }
        return valueIn(userFile(domain), key, faults);
    }

    Value valueIn(const std::string& path, std::string_view key, Faults& faults) {
        const Value* const value = load(path, faults).find(key);
        return value ? *value : Value();
    }

    // The values of a file as it is now; none of one that cannot be read. Valid until the next
    // call.
    const Dictionary& load(const std::string& path, Faults& faults) {
        const FileIdentity now = preferences::identityOf(path);
        const auto found = files_.find(path);
        const bool isKnown = found != files_.end() && now.isSameAs(found->second.identity);
        if (isKnown && !found->second.identity.isFresh) return found->second.values;

        FileContent content = preferences::readFile(path);
        const bool isBad = content.state == FileContent::State::Damaged ||
                           content.state == FileContent::State::Unreadable;
        const bool isReported = isKnown && found->second.isReported;
        if (isBad && !isReported)
            faults.push_back("preferences ignored: " + path + " " + content.why);
        Remembered& remembered = files_[path];
        remembered = {content.identity, std::move(content.values), isBad};
        return remembered.values;
    }

    std::mutex lock_;
    std::map<std::string, Changes, std::less<>> changes_;
    std::map<std::string, Remembered> files_;
    std::uint64_t lastNumber_ = 0;
};

// Never destroyed: preferences may be read to the last.
Store& store() {
    static Store& theStore = *new Store;
    return theStore;
}

struct Reporter {
    std::mutex lock;
    CFPreferencesFaultReporter report;
};

Reporter& reporter() {
    static Reporter& theReporter = *new Reporter;
    return theReporter;
}

void report(const Faults& faults) {
    if (faults.empty()) return;
    CFPreferencesFaultReporter tell;
    {
        const std::lock_guard guard(reporter().lock);
        tell = reporter().report;
    }
    if (!tell) return;
    for (const std::string& fault : faults)
        tell(fault);
}

// What the file holds is to be merged with; answers why it cannot be, or nothing.
std::string prepare(const std::string& path, FileContent& content, Faults& faults) {
    content = preferences::readFile(path);
    if (content.state == FileContent::State::Unreadable) return content.why;
    if (content.state != FileContent::State::Damaged) return "";
    std::string keptAs;
    const std::string why = preferences::keepAside(path, keptAs);
    if (!why.empty()) return "what is there " + content.why + ", and cannot be kept: " + why;
    faults.push_back("damaged preferences kept as " + keptAs + ": the file " + content.why);
    return "";
}

// Merges the changes into the file; answers why that failed, or nothing.
std::string write(const std::string& path, const Changes& changes, Faults& faults) {
    const std::string folder(dirname(path));
    if (std::string why = preferences::makeFolders(folder); !why.empty()) return why;
    const auto lock = PatientFileLock::acquire(
        folder + "/." + std::string(basename(path)) + ".lock", kLockPatience);
    if (!lock) {
        return errno == EWOULDBLOCK ? "another process holds the lock for too long"
                                    : "lock: " + errorNumberText(errno);
    }
    FileContent content;
    if (std::string why = prepare(path, content, faults); !why.empty()) return why;
    if (!Store::apply(changes, content.values)) return "";
    return preferences::replaceFile(path, content.values);
}

}  // namespace

Value CFPreferencesCopyAppValue(std::string_view key, std::string_view domain) {
    checkDomain(domain);
    checkKey(key);
    Faults faults;
    Value value = store().copy(key, domain, faults);
    report(faults);
    return value;
}

Dictionary CFPreferencesCopyMultiple(std::string_view domain) {
    checkDomain(domain);
    Faults faults;
    Dictionary values = store().copyMultiple(domain, faults);
    report(faults);
    return values;
}

void CFPreferencesSetAppValue(std::string_view key, const Value& value, std::string_view domain) {
    checkDomain(domain);
    checkKey(key);
    if (!value.isNull()) {
        try {
            static_cast<void>(dataFromPropertyList(Dictionary{{key, value}}));
        } catch (const PropertyListError& error) {
            throw std::invalid_argument(std::string("not a preference value: ") + error.what());
        }
    }
    store().set(key, value, domain);
}

bool CFPreferencesAppSynchronize(std::string_view domain) {
    checkDomain(domain);
    const Changes changes = store().changesOf(domain);
    if (changes.empty()) return true;

    Faults faults;
    const std::string path = userFile(domain);
    const std::string why = write(path, changes, faults);
    if (why.empty()) {
        store().drop(changes, domain);
    } else {
        faults.push_back("cannot write the preferences " + path + ": " + why);
    }
    report(faults);
    return why.empty();
}

void CFPreferencesSetFaultReporter(CFPreferencesFaultReporter newReporter) {
    const std::lock_guard guard(reporter().lock);
    reporter().report.swap(newReporter);
}

}  // namespace sevrin::platform
