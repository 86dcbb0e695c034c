#include "calib/alignment_notice.h"

#include <algorithm>

#include "calib/calib_session.h"
#include "zorsock/activity.h"

namespace {
int lastSent = ZOR_ACTIVITY_IDLE;
}  // namespace

void NoteAlignment(const CalibSession& session, bool newSession) {
  if (newSession) lastSent = ZOR_ACTIVITY_IDLE;
  int activity = ZOR_ACTIVITY_IDLE;
  if (session.aligning && session.alignKind == 3)
    activity = ZOR_ACTIVITY_ALIGN + std::min(session.alignPointCount(), 3);
  if (activity == lastSent || !session.connected()) return;
  lastSent = activity;
  zorNotify(activity);
}
