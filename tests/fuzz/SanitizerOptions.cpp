// The sanitizers' settings, in the program so that an input can be tried without any script.

// The scripted bus and libpdbus define the same interfaces; the program's own come first.
extern "C" const char* __asan_default_options() {  // NOLINT: the sanitizer's name
  return "detect_odr_violation=0:detect_stack_use_after_return=1:strict_string_checks=1";
}

extern "C" const char* __ubsan_default_options() {  // NOLINT: the sanitizer's name
  return "print_stacktrace=1";
}
