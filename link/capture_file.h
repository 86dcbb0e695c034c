// Names of raw capture recordings: "capture-<user>-<yyyymmdd>-<nn>.rpd" in the
// working directory, the first sequence number 1..999 not yet taken that day.
#pragma once

#include <optional>
#include <string>

// The name for `user` on that date with sequence number n (two digits at least).
std::string CaptureFileName(const std::string& user, int year, int month, int day, int n);

// The first free name in `directory` (returned with the directory prefixed
// unless it is "."); nullopt when all 999 are taken. A name counts as taken
// unless opening it fails because it does not exist.
std::optional<std::string> FreeCaptureFileName(const std::string& directory,
                                               const std::string& user, int year, int month,
                                               int day);

// The first free name in the working directory for $USER ("user" when unset)
// and today's local date; false when none is free.
bool makeCaptureFileName(std::string& name);
