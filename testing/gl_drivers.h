// Keeps the OpenGL driver loaded until the process ends.
#pragma once

namespace zortest {

// Closing the last X connection makes Mesa unload its DRI driver. Blocks that
// the driver still points to from its globals then look leaked to the leak
// checker, which no longer sees those globals and cannot name the code that
// allocated them. Call this while a GL context has been used (before the
// application object goes) to make every loaded DRI driver stay until exit.
// Returns how many drivers were pinned.
int KeepGlDriversLoaded();

}  // namespace zortest
