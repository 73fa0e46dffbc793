#include "repair/facts.h"

#include <iostream>

// No text needs an escape: each is a word of ours, a digest or the name of a run.

static void printBundles(const std::vector<Bundle>& bundles) {
    const char* comma = "";
    for (const Bundle& bundle : bundles) {
        std::cout << comma << '"' << bundle.key << "\": \"" << bundle.found << '"';
        comma = ", ";
    }
}

static void printRuns(const std::vector<Run>& runs) {
    const char* comma = "";
    for (const Run& run : runs) {
        std::cout << comma << "{\"name\": \"" << run.name
                  << "\", \"holds\": " << (run.holds ? "true}" : "false}");
        comma = ", ";
    }
}

static void printState(const State& state) {
    const std::string last = state.last ? state.last->name : "";
    const Receipt& moved = state.previous.present ? state.previous : state.removed;
    const Receipt& before = moved.present ? moved : state.receipt;
    const bool undoable = state.last && !state.over;
    std::cout << "{\"product\": \"" << state.product << "\", \"format\": \"" << state.format
              << "\",\n  \"receipt\": \"" << state.receipt.found << "\", \"digest\": \""
              << state.receipt.digest << "\", \"tmp\": " << (state.unfinished ? "true" : "false")
              << ",\n  \"bundles\": {";
    printBundles(state.bundles);
    std::cout << "},\n  \"interrupted\": \"" << (state.interrupted ? last : "")
              << "\", \"undo\": \"" << (undoable ? last : "") << "\", \"before\": \""
              << (undoable ? before.digest : "") << "\",\n  \"runs\": [";
    printRuns(state.runs);
    std::cout << "]}";
}

void printFacts(const std::string& version, const std::vector<State>& states) {
    std::cout << "{\"version\": \"" << version << "\", \"formats\": [";
    const char* comma = "\n ";
    for (const State& state : states) {
        std::cout << comma;
        printState(state);
        comma = ",\n ";
    }
    std::cout << "]}\n";
}
