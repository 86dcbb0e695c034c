// Checks a tracker file before its tracker goes to the server, which would
// refuse it and end the session: LED ids must not be negative, coordinates
// must be finite numbers, and a tracker carries at most 4096 markers.
#pragma once

#include <string>

// Empty when the file may be sent; otherwise "file:line: what is wrong"
// (lines counted from 1). A file that cannot be read passes: reading it
// reports that.
std::string CheckTrackerFile(const std::string& fileName);

// The same for files named on the command line: a refused file is reported
// as "error: " and the reason on standard error. True when it may be sent.
bool TrackerFileAccepted(const std::string& fileName);
