#include <exception>
#include <iostream>

#include "cli/run.h"
#include "platform/signals.h"

int main(int argc, char** argv) {
    blockWriteSignals();
    try {
        run(argc, argv);
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 3;
    }
}
