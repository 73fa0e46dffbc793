#include "platform/lsof.h"

// Each test runs the tool in a directory of its own and puts its stand-in there.
const char* lsof() {
    return "./lsof";
}
