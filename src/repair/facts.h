#pragma once

#include <string>
#include <vector>

#include "repair/state.h"

// Takes the version of the program and all states, and prints them as one JSON document, which the
// manual page describes.
void printFacts(const std::string& version, const std::vector<State>& states);
