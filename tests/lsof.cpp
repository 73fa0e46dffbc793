#include "platform/lsof.h"

// Each test runs the tool in its own directory, and puts a script in place of lsof there.
const char* lsof() {
    return "./lsof";
}
