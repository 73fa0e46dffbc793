#pragma once

#include "repair/history.h"

// Goes back to what stood before the last run; where nothing is interrupted but by a .tmp file,
// only moves that. Everything is proved before anything moves. Signals that stop a program are
// blocked from then on.
// Fails with "Backup verification failed; " and the original, "New destination appeared; " and the
// path, "Installed readback mismatch", "Stale transaction receipt preserved; contact support" where
// there is no run, or like `stands`, `unloaded` and `checkRename`.
void goBack(const History& history);
