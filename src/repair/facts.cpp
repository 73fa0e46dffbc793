#include "repair/facts.h"

#include <iostream>

// No text needs escaping: each is a fixed word, a bundle's key, a digest or the name of a run.

static void printState(const State& state) {
    const std::string last = state.last ? state.last->name : "";
    const bool undoable = state.last && !state.over;
    const bool returns = undoable && state.last->moved.present;
    const Receipt& before = returns ? state.last->moved : state.receipt;
    std::cout << "{\"product\": \"" << state.product << "\", \"format\": \"" << state.format
              << "\",\n  \"receipt\": \"" << state.receipt.found << "\", \"digest\": \""
              << state.receipt.digest << "\", \"tmp\": " << (state.unfinished ? "true" : "false")
              << ",\n  \"bundles\": {";
    for (const Bundle& bundle : state.bundles)
        std::cout << (&bundle == &state.bundles.front() ? "\"" : ", \"") << bundle.key << "\": \""
                  << bundle.found << '"';
    std::cout << "},\n  \"interrupted\": \"" << (state.interrupted ? last : "")
              << "\", \"undo\": \"" << (undoable ? last : "") << "\", \"before\": \""
              << (undoable ? before.digest : "") << "\",\n  \"runs\": [";
    for (const Run& run : state.runs)
        std::cout << (&run == &state.runs.front() ? "" : ", ") << "{\"name\": \"" << run.name
                  << "\", \"holds\": " << (run.holds ? "true}" : "false}");
    std::cout << "]}";
}

void printFacts(const std::string& version, const std::vector<State>& states) {
    std::cout << "{\"version\": \"" << version << "\", \"formats\": [";
    for (const State& state : states) {
        std::cout << (&state == &states.front() ? "\n " : ",\n ");
        printState(state);
    }
    std::cout << "]}\n";
}
