#include <exception>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/options.h"
#include "platform/signals.h"
#include "repair/facts.h"
#include "repair/state.h"
#include "repair/undo.h"
#include "repair/words.h"

// Takes main's two arguments, and gives whether something needs to be done.
static bool repair(int argc, char** argv) {
    std::filesystem::path testRoot;
    std::optional<std::string> run;
    bool json = false;
    bool version = false;
    takeOptions(argc, argv,
                {{"--test-root", [&](const char* value) { testRoot = absoluteForm(value); }},
                 {"--undo", [&](const char* value) { run = value; }}},
                {{"--json", &json}, {"--version", &version}});
    if (version) {
        std::cout << VERSION << '\n';
        return false;
    }
    if (run && json) throw std::runtime_error("Give one of --undo and --json");
    const bool undid = run && undo(testRoot, *run);
    const std::vector<State> states = survey(testRoot);
    if (run) std::cout << (undid ? "Undid " + *run : *run + " has nothing to undo") << '\n';
    if (json) printFacts(VERSION, states);
    if (!json) printWords(testRoot, states);
    if (!std::cout.flush()) throw std::runtime_error("Cannot write the output");
    bool urgent = false;
    for (const State& state : states) urgent = urgent || advise(testRoot, state).urgent;
    return urgent;
}

int main(int argc, char** argv) {
    blockWriteSignals();
    try {
        return repair(argc, argv) ? 1 : 0;
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 3;
    }
}
