#include "platform/signals.h"

#include <csignal>
#include <initializer_list>

static void hold(std::initializer_list<int> signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals) sigaddset(&set, signal);
    sigprocmask(SIG_BLOCK, &set, nullptr);
}

void holdwrites() {
    hold({SIGPIPE, SIGXFSZ});
}

void holdends() {
    hold({SIGINT, SIGTERM, SIGHUP, SIGQUIT});
}
