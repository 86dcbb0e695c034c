// The program from the command line to the end of the event loop.
#pragma once

// Returns the process exit code: 0 after "-h" or "-u", else the event loop's.
int RunCalibClient(int& argc, char** argv);
