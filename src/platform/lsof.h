#pragma once

// Gives the path of the program that lists open files.
const char* lsof();
