// While the server link waits for the network (connecting, a set-up request),
// the GUI thread keeps its event loop turning: the window paints, its timers
// run and the 3D view can still be turned and zoomed. Input that could start a
// command under the call in progress (clicks and keys elsewhere, shortcuts,
// menus) is refused rather than held for later, a busy cursor says why, and
// closing a main window is put off until the call has returned.
#pragma once

class QWidget;

// Installs (true) or removes (false) the hook for every later wait.
void KeepEventLoopWhileWaiting(bool on);
// True while the calling code runs from inside such a wait: a timer or slot
// that would talk to the server must then skip its turn.
bool InsideLinkWait();
// Lets a widget (and what it holds) take mouse and wheel input during waits:
// only for widgets whose input changes nothing but how things are shown.
void AllowInputWhileWaiting(QWidget* widget);
