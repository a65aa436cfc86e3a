#include "sim/posix/Real.h"

#include <dlfcn.h>

#include <cstdlib>

void* sim::nextDefinition(const char* name) {
    void* const definition = dlsym(RTLD_NEXT, name);
    if (!definition)
        abort();
    return definition;
}
