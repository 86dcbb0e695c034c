// Slots whose work belongs to parts of the program still to come (the rate
// switch). They are wired to their menu entries,
// keys and buttons already; each says what it will drive.
#include "app/calib_main_window.h"

// The session's rate switch.
void CalibMainWindow::sl_ToggleFreq() {}
