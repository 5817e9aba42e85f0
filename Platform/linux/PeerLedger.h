// What each user's processes hold in this process, so that no user can take what the others need.
//
// Counts connections, descriptors and waiting bytes per user id. Beside the fixed ceilings of
// XPCLimits.h one rule shares out the descriptors of the process: a user gets another one only
// while it holds fewer than are still free. A single greedy user thus ends at half of them, the
// next at a quarter; there is always something left for one more. Any thread.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <mutex>

namespace sevrin::platform {

class PeerLedger {
public:
    // The process's ledger, over its soft descriptor limit as it is at the first use.
    [[nodiscard]] static PeerLedger& shared();

    // A ledger over `descriptorsMax` descriptors.
    explicit PeerLedger(std::size_t descriptorsMax) : descriptorsMax_(descriptorsMax) {}

    // Charges one connection and its descriptor, one descriptor, or some waiting bytes to `user`.
    // False, and nothing charged, when that is more than its share.
    [[nodiscard]] bool chargeConnection(uid_t user);
    [[nodiscard]] bool chargeDescriptor(uid_t user);
    [[nodiscard]] bool chargeBytes(uid_t user, std::size_t bytes);

    void releaseConnection(uid_t user);
    void releaseDescriptor(uid_t user);
    void releaseBytes(uid_t user, std::size_t bytes);

private:
    struct Account {
        std::size_t connections = 0;
        std::size_t descriptors = 0;
        std::size_t bytes = 0;
    };

    [[nodiscard]] bool takeDescriptor(Account& account);
    void giveBackDescriptor(Account& account);
    void forgetIfEmpty(uid_t user);

    const std::size_t descriptorsMax_;
    std::mutex lock_;
    std::map<uid_t, Account> accounts_;
    std::size_t descriptorsTaken_ = 0;
};

}  // namespace sevrin::platform
