// Paths that name a file by its age or by a wildcard instead of by its name.
//
// Re-entrant.  What finds nothing shows in the result, and the caller fails on that.
#pragma once

#include "core/zostring.h"

// Replaces %newestfile%, %oldestfile%, %newestfolder% and %oldestfolder%, in any letter case, by the name of that
// entry of the directory which the path names up to there (none: the current directory).  Several macros are
// resolved from left to right, each in what the ones before gave.  When one finds nothing, the path comes back
// unchanged.  It is empty when a folder could not be searched for trouble of the agent's own.
String GetFileUsingSpecialMacros(String path);
// The same in place; false in that trouble, with the path as it was.
bool ResolveFileMacros(String& path);

// The path of the first entry, in the directory's own order, that matches the wildcard behind the last "/" and is
// neither a folder nor a link; empty when there is none, or none is known for trouble of the agent's own.
String GetFirstMatchedFile(const String& pathMask);
