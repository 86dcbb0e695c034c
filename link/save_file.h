// Writes a whole text file so that readers see either the old file or the new
// one, never a truncated mix: a crash or a full disk mid-write leaves the old
// file in place.
#pragma once

#include <string>

// Replaces `path` with `contents`. On failure returns false, leaves the old
// file untouched and, when `error` is given, says why in words.
bool SaveFileAtomically(const std::string& path, const std::string& contents,
                        std::string* error = nullptr);
