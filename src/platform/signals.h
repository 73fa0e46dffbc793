#pragma once

// Both block signals until the process ends. Children start with none blocked (see runChild).

// Blocks PIPE and XFSZ, so that a write to a pipe without a reader, or beyond the file size limit,
// fails instead of ending the process.
void blockWriteSignals();

// Blocks the signals by which somebody stops a program: INT, TERM, HUP and QUIT.
void blockStops();
