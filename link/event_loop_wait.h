// While the server link waits for the network (connecting, a set-up request),
// the GUI thread keeps its event loop turning: the window paints and its
// timers run; user input is held until the call returns, so nothing the user
// does can start a second connect or disconnect under the one in progress.
#pragma once

// Installs (true) or removes (false) the hook for every later wait.
void KeepEventLoopWhileWaiting(bool on);
// True while the calling code runs from inside such a wait: a timer that
// would talk to the server must then skip its turn.
bool InsideLinkWait();
