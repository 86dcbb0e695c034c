// Slots whose work belongs to parts of the program still to come (the 3D
// view, its drawing and selection, the calibration engine, alignment, the
// tracker bar and the preferences). They are wired to their menu entries,
// keys and buttons already; each says what it will drive.
#include "app/calib_main_window.h"

// 3D view and drawing switches.
void CalibMainWindow::sl_Fill() {}
void CalibMainWindow::sl_Scale() {}
void CalibMainWindow::sl_Ids() {}
void CalibMainWindow::sl_Slots() {}
void CalibMainWindow::sl_Shadows() {}
void CalibMainWindow::sl_Cameras() {}
void CalibMainWindow::sl_CamCones() {}
void CalibMainWindow::sl_CamStands() {}
void CalibMainWindow::sl_Reset() {}
void CalibMainWindow::sl_View2d() {}
void CalibMainWindow::sl_ColorDialog() {}

// Marker trails and the filter.
void CalibMainWindow::sl_BrNone() {}
void CalibMainWindow::sl_BrPoints() {}
void CalibMainWindow::sl_BrLines() {}
void CalibMainWindow::sl_Fade() {}
void CalibMainWindow::sl_Filter() {}
void CalibMainWindow::sl_BrushEdit() {}

// Selection and measurement.
void CalibMainWindow::sl_Follow() {}
void CalibMainWindow::sl_ShowDistance() {}
void CalibMainWindow::sl_SelectFocus() {}
void CalibMainWindow::selectNumber(int /*number*/) {}
void CalibMainWindow::sl_Select_1() { selectNumber(1); }
void CalibMainWindow::sl_Select_2() { selectNumber(2); }
void CalibMainWindow::sl_Select_3() { selectNumber(3); }
void CalibMainWindow::sl_Select_4() { selectNumber(4); }
void CalibMainWindow::sl_Select_5() { selectNumber(5); }
void CalibMainWindow::sl_Select_6() { selectNumber(6); }
void CalibMainWindow::sl_Select_7() { selectNumber(7); }
void CalibMainWindow::sl_Select_8() { selectNumber(8); }
void CalibMainWindow::sl_Select_9() { selectNumber(9); }
void CalibMainWindow::sl_ClearSelections() {}

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
