#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "repair/state.h"

// What a person has to do about one product in one format.
struct Advice {
    std::string line;    // empty if nothing needs to be done
    bool urgent = true;  // the exit status says so
};

// Takes the test root and a state, and gives the advice. Fails like `stands`.
Advice advise(const std::filesystem::path& testRoot, const State& state);

// Takes the test root and all states, and prints them for people, the advice last. Fails like
// `stands`.
void printWords(const std::filesystem::path& testRoot, const std::vector<State>& states);
