// Tells the server which wand alignment point the session wants, or that it
// wants none, whenever that changes, so that a simulated room can play along
// (docs/protocol.md, client activity notices).
#pragma once

class CalibSession;

// Sends the notice when it differs from the last one sent. `newSession`: the
// session has just opened, and its server knows nothing yet. The library
// holds one connection per process, so what was sent last is kept here.
void NoteAlignment(const CalibSession& session, bool newSession = false);
