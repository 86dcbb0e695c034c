// Slots whose work belongs to parts of the program still to come (the rate
// switch, alignment and the tracker bar). They are wired to their menu entries,
// keys and buttons already; each says what it will drive.
#include "app/calib_main_window.h"

// The session's rate switch.
void CalibMainWindow::sl_ToggleFreq() {}

// Alignment and its rigid body.
void CalibMainWindow::sl_Align() {}
void CalibMainWindow::sl_Flip() {}
void CalibMainWindow::sl_Clear() {}
void CalibMainWindow::sl_CapturePos() {}
void CalibMainWindow::sl_CreateRB() {}
void CalibMainWindow::sl_EnableRB() {}

// Replacing the calibration's trackers.
void CalibMainWindow::sl_NewRigid() {}
void CalibMainWindow::sl_NewPoint() {}
