#pragma once

// Takes main's two arguments and performs one run: an install, a removal or a dry run. If the run
// ends normally, prints its one line on standard output. Fails like the phase that failed, after a
// rollback if that was in the commit region; if the rollback fails too, only its failure is raised.
// docs/messages.md lists the state on disk after each failure.
void run(int argc, char** argv);
