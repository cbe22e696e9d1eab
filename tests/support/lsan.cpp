// LeakSanitizer's suppressions for the whole test program.
//
// Blob::set() over a string blob abandons the previous string by design (the
// blob never frees it); those strings are all allocated by newHeldString.
// Nothing else is suppressed.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:newHeldString\n";
}
