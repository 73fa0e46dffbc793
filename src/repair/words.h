#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "repair/state.h"

// The next step of a person for one product in one format.
struct Advice {
    std::string line;    // empty if nothing needs to be done
    bool urgent = true;  // the exit status is then 1
};

// Takes the test root and a state, and gives the advice for it. Fails like `stands`.
Advice advise(const std::filesystem::path& testRoot, const State& state);

// Takes the test root and all states. Prints them for people on standard output, the advice last.
// Fails like `stands`.
void printWords(const std::filesystem::path& testRoot, const std::vector<State>& states);
