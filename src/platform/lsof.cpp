#include "platform/lsof.h"

const char* lsof() {
    return "/usr/sbin/lsof";
}
