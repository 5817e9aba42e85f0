// The verbs of switchboardctl, each in a file of its own: its options, its columns, its words.
#pragma once

#include "tools/CommandLine.h"

namespace sevrin {

void addArchive(CommandLine& commandLine);
void addBuild(CommandLine& commandLine);
void addCall(CommandLine& commandLine);
void addLocations(CommandLine& commandLine);
void addLog(CommandLine& commandLine);
void addMonitor(CommandLine& commandLine);
void addPath(CommandLine& commandLine);
void addPing(CommandLine& commandLine);
void addPost(CommandLine& commandLine);
void addPrefs(CommandLine& commandLine);
void addPublish(CommandLine& commandLine);
void addQuery(CommandLine& commandLine);
void addVersion(CommandLine& commandLine);
void addWait(CommandLine& commandLine);

// All of them, in the order in which the help lists them.
void addVerbs(CommandLine& commandLine);

}  // namespace sevrin
