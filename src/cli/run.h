#pragma once

// Takes main's two arguments and performs one run: an install, a removal or a verification.
// Returns when the run has ended normally, with its one line on standard output. Raises every
// failure of every phase; if the rollback fails, its failure takes the place of the first.
// ARCHITECTURE.md says what stands on disk then.
void run(int argc, char** argv);
