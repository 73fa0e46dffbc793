#pragma once

#include "repair/history.h"

// Takes what the disk tells of one product in one format and goes back to what stood before the
// last transaction; where that has finished and a newer one left a .tmp file, it only moves that.
// Everything is proved before anything moves. Fails with "Backup verification failed; " and the
// original, "Stale transaction receipt preserved; contact support" where no transaction is left,
// or like `unloaded` and `moveall`.
void goback(const History& history);
