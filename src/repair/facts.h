#pragma once

#include <string>
#include <vector>

#include "repair/state.h"

// Takes the version of the program and all states. Prints them on standard output as the JSON
// object that the manual page describes.
void printFacts(const std::string& version, const std::vector<State>& states);
