// This backend offers every reader; only the seam takes one away.
#include "Platform/DirectoryReader.h"

#include <atomic>

namespace sevrin::platform {

namespace {

std::atomic<DirectoryReader> bestReader{DirectoryReader::Bulk};

}  // namespace

bool hasGetattrlistbulk() noexcept {
    return bestReader == DirectoryReader::Bulk;
}

bool hasGetdirentriesattr() noexcept {
    return bestReader != DirectoryReader::Plain;
}

DirectoryReaderOverride::DirectoryReaderOverride(DirectoryReader best) noexcept {
    bestReader = best;
}

DirectoryReaderOverride::~DirectoryReaderOverride() {
    bestReader = DirectoryReader::Bulk;
}

}  // namespace sevrin::platform
