// Keeps records of several lines finite: what the record under way has come to.
#include "Common/Source/Utilities/RecordExtent.h"

namespace sevrin {

namespace {

thread_local int levels = 0;
thread_local std::size_t lines = 0;
thread_local std::size_t lineBytes = 0;

}  // namespace

RecordExtent::RecordExtent() noexcept {
    if (levels++ == 0) {
        lines = 0;
        lineBytes = 0;
    }
}

RecordExtent::~RecordExtent() {
    --levels;
}

void RecordExtent::noteLine(std::size_t bytes) noexcept {
    ++lines;
    lineBytes += bytes;
}

bool RecordExtent::isFull() noexcept {
    return lines >= kRecordLinesMax || lineBytes >= kRecordBytesMax;
}

bool RecordExtent::isTooDeep() noexcept {
    return levels > kRecordLevelsMax;
}

}  // namespace sevrin
