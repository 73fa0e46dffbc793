#include "platform/signals.h"

#include <csignal>
#include <initializer_list>

static void block(std::initializer_list<int> signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals) sigaddset(&set, signal);
    sigprocmask(SIG_BLOCK, &set, nullptr);
}

void blockWriteSignals() {
    block({SIGPIPE, SIGXFSZ});
}

void blockStops() {
    block({SIGINT, SIGTERM, SIGHUP, SIGQUIT});
}
