// What each user's processes hold in this process: the counting and the sharing rule.
#include "Platform/linux/PeerLedger.h"

#include <sys/resource.h>

#include "Platform/Assertion.h"
#include "Platform/XPCLimits.h"

namespace sevrin::platform {

namespace {

// Descriptors that the process needs for itself: its standard streams, log file, sockets, epoll and
// the like.
constexpr std::size_t kOwnDescriptors = 64;

std::size_t softDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 1024;
    return static_cast<std::size_t>(limit.rlim_cur);
}

}  // namespace

PeerLedger& PeerLedger::shared() {
    static PeerLedger& theLedger = *new PeerLedger(softDescriptorLimit());
    return theLedger;
}

bool PeerLedger::takeDescriptor(Account& account) {
    const std::size_t used = descriptorsTaken_ + kOwnDescriptors;
    const std::size_t free = used < descriptorsMax_ ? descriptorsMax_ - used : 0;
    if (account.descriptors >= free || account.descriptors >= kDescriptorsPerUserMax) return false;
    ++account.descriptors;
    ++descriptorsTaken_;
    return true;
}

void PeerLedger::giveBackDescriptor(Account& account) {
    SEVRIN_ASSERT(account.descriptors > 0, "a descriptor is released once");
    --account.descriptors;
    --descriptorsTaken_;
}

void PeerLedger::forgetIfEmpty(uid_t user) {
    const Account& account = accounts_[user];
    if (account.connections == 0 && account.descriptors == 0 && account.bytes == 0)
        accounts_.erase(user);
}

bool PeerLedger::chargeConnection(uid_t user) {
    const std::scoped_lock guard(lock_);
    Account& account = accounts_[user];
    if (account.connections < kConnectionsPerUserMax && takeDescriptor(account)) {
        ++account.connections;
        return true;
    }
    forgetIfEmpty(user);
    return false;
}

bool PeerLedger::chargeDescriptor(uid_t user) {
    const std::scoped_lock guard(lock_);
    if (takeDescriptor(accounts_[user])) return true;
    forgetIfEmpty(user);
    return false;
}

bool PeerLedger::chargeBytes(uid_t user, std::size_t bytes) {
    const std::scoped_lock guard(lock_);
    Account& account = accounts_[user];
    if (bytes <= kWaitingBytesPerUserMax - account.bytes) {
        account.bytes += bytes;
        return true;
    }
    forgetIfEmpty(user);
    return false;
}

void PeerLedger::releaseConnection(uid_t user) {
    const std::scoped_lock guard(lock_);
    Account& account = accounts_[user];
    SEVRIN_ASSERT(account.connections > 0, "a connection is released once");
    --account.connections;
    giveBackDescriptor(account);
    forgetIfEmpty(user);
}

void PeerLedger::releaseDescriptor(uid_t user) {
    const std::scoped_lock guard(lock_);
    giveBackDescriptor(accounts_[user]);
    forgetIfEmpty(user);
}

void PeerLedger::releaseBytes(uid_t user, std::size_t bytes) {
    const std::scoped_lock guard(lock_);
    Account& account = accounts_[user];
    SEVRIN_ASSERT(account.bytes >= bytes, "bytes are released once");
    account.bytes -= bytes;
    forgetIfEmpty(user);
}

}  // namespace sevrin::platform
