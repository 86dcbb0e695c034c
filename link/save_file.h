// The client's small text files (settings, body files): written whole so that
// readers see either the old file or the new one, never a truncated mix (a
// crash or a full disk mid-write leaves the old file in place), and read whole
// with a bound, so that a path that names a device or a huge file costs nothing.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

// Replaces `path` with `contents`. On failure returns false, leaves the old
// file untouched and, when `error` is given, says why in words.
bool SaveFileAtomically(const std::string& path, const std::string& contents,
                        std::string* error = nullptr);

// The whole of `path`, or nothing when it cannot be opened or is larger than
// `maxBytes` (settings files are a few hundred bytes).
std::optional<std::string> ReadTextFile(const std::string& path, size_t maxBytes = 1 << 20);
