// The platform's console: where a program says what it cannot, or must not, write to its log file.
//
// On this system the console is standard error. It is the last resort of failing code, so it never
// raises a signal, never waits for long and reports no failure: a message that nobody takes is
// lost. Any thread may call it.
#pragma once

#include <string_view>

#include "Platform/Format.h"

namespace sevrin::platform {

// Writes `message` to standard error as one line,
//
//     2026-11-21 09:20:37.123 processname[pid] message
//
// in local time, or, when JOURNAL_STREAM says that standard error leads to the system's journal,
// which stamps its lines itself, with the priority of information:
//
//     <6>message
//
// A message of several lines is written at once; the further lines are indented by four blanks
// (behind a priority of their own), so that no message can pass for two. A line break at the end
// adds nothing. Control characters other than the tab, and bytes that are not UTF-8, appear as \xNN
// for each byte: a terminal must not obey a message.
//
// Messages of this process are never mixed; nor is one of up to 4,096 bytes mixed with those of
// other processes. When standard error takes nothing for a second, the rest of the message is
// dropped, and until it takes something again further messages are dropped at once. Leaves errno as
// it was; throws only std::bad_alloc.
void NSLog(std::string_view message);

// The same for the text that `format` and its arguments make (Platform/Format.h). A message without
// arguments is no format: its percent signs are written as they are. Throws FormatError too.
template <typename First, typename... Others>
void NSLog(std::string_view format, const First& first, const Others&... others) {
    NSLog(std::string_view(stringWithFormat(format, first, others...)));
}

}  // namespace sevrin::platform
