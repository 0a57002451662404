// QueueFiles.h - archive copies of queue files, and holding a file that could not be archived
//
// An archive copy goes into a folder under the queue file's base name with its
// extension (from the last ".") replaced by ".hst", never over an existing
// file; if that copy fails for any reason a unique ".mim" name in the same
// folder is tried once. A copy counts only when its data and its folder entry
// are on disk, since the source is deleted right after.
//
// Input:       a folder with or without its trailing "/"; an empty folder
//              gives "/" and the name, the root folder, as configured.
// Diagnostics: ArchiveQueueFile tells whether a copy exists; the name it
//              gives is the last destination tried either way.
// See also:    ThreadQueue.h, platform/Files.h
#pragma once

#include "foundation/NvcString.h"

// What follows the last "/" of `path`, or the whole path.
CNvcString& BaseNameOf(const char* path, CNvcString& out);

// `name` with its text from the last "." on replaced by `extension` (appended
// when it has no ".").
CNvcString& WithExtension(const char* name, const char* extension, CNvcString& out);

// Copies `path` into `directory`; `storedName` gets the base name of the last
// destination. True when a durable copy exists.
bool ArchiveQueueFile(const char* path, const char* directory, CNvcString& storedName);

// Renames a queue file that must not be deleted to its ".held" name in its own
// folder (a unique ".held" name when that is taken), so that passes leave it
// alone; `heldPath` gets the new path. False when it could not be renamed.
bool HoldQueueFile(const char* path, CNvcString& heldPath);
