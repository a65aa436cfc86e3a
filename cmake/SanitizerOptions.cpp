// The sanitizers' options, compiled into every program of a sanitizer build. The runtimes look for
// these functions; what the environment says goes before them.

extern "C" {

const char* __asan_default_options();
const char* __ubsan_default_options();
const char* __tsan_default_options();

const char* __asan_default_options() {
    // Where a cancelled thread has unwound, its stack is still marked as it was in use; taking down
    // the signal stack at the thread's end would be reported as an overflow.
    return "strict_string_checks=1:use_sigaltstack=0";
}

const char* __ubsan_default_options() { return "print_stacktrace=1"; }

const char* __tsan_default_options() {
    return "second_deadlock_stack=1:suppressions='" HANDHELD_TSAN_SUPPRESSIONS "'";
}

}  // extern "C"
