// File system and machine queries.
#pragma once

#include "base/ZString.h"

namespace Ulmex {

// True if the path exists, file or directory.
bool ZFileExist(const char* path);

// Creates the directory with the given mode; true on success and for a directory that
// already exists. Only the last component is created.
bool ZCreateDirectory(const char* path, unsigned int mode);

// Whether the disk holding the file `path` (which need not exist yet; its folder must) has
// room for `bytes` more, with a sixty-fourth and 64 KiB to spare for the file's own tables
// and the writer's blocks. False, with why in `why` (when given: "No space left on device:
// about N bytes to write, M free"), where it has not. A disk whose room cannot be asked
// about counts as having room. Writers that do not stop at a failed write (OpenUSD's crate
// writer, Alembic's Ogawa) ask before they start a file: another writer filling the same
// disk at the same moment can still beat the check.
bool ZRoomToWrite(const char* path, unsigned long long bytes, ZString* why);

// Fills `text` with facts about the machine, for a cache's information record: one line
// per fact, each a tab, a quoted key, a colon, a quoted value and a comma, each ended by a
// newline. Keys begin with "System" so that no reader key can match them, and values
// carry no white space, colon or double-quote mark (those are replaced by '_'), so a
// token-by-token reader sees one token per line that it skips. Replaces what `text` held.
void ZGetSystemInfo(ZString& text);

} // namespace Ulmex
