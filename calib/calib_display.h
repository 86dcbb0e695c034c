// What the window shows of a calibration: the pass lines of the status
// panel (in the panel's tags) and the progress label with its moving arrows.
#pragma once

#include <QString>
#include <cstdint>
#include <string>

class CalibSession;

// The status text after a message worth showing: `current` with the line
// for `pass` (negative: that pass failed) appended, or started afresh when a
// new run begins (pass 1 or -1). A detail of more than one character asks
// for more data and, when it names a camera, names it.
QString CalibResultHtml(const QString& current, int32_t pass, float passError,
                        const std::string& detail);
inline constexpr bool StartsNewRun(int32_t pass) { return pass == 1 || pass == -1; }

// "Capturing ", "Calibrating " or "Aligning " (the last true flag wins) and
// one to three " >" that grow every 0.3 s of `micros`; empty when idle.
QString ProgressText(bool capturing, bool calibrating, bool aligning, int64_t micros);
QString ProgressText(const CalibSession& session, int64_t micros);
