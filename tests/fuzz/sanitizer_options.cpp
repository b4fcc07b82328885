// Sanitizers as all targets run under them.
// Long histories of allocations and a large quarantine cost more than the server: a finding is told by its input, and
// what is used after it was freed is used at once or by the next message.
extern "C" const char* __asan_default_options();  // NOLINT(bugprone-reserved-identifier): the sanitizer's name
extern "C" const char* __asan_default_options() {
  return "quarantine_size_mb=1:thread_local_quarantine_size_kb=64:malloc_context_size=2";
}
