// Linked into the hook library of fuzz builds only. The call-sequence fuzzer
// loads and unloads the library as its camera process comes and goes, which
// libFuzzer cannot follow for a module's coverage counters: it would read them
// after the unload. These definitions take the library's registration in
// libFuzzer's place and hand the counters to the fuzzer, which copies them into
// counters of its own before each unload. Nothing else changes in the library.
#include <dlfcn.h>

#include <cstdint>

extern "C" {

__attribute__((visibility("hidden"))) void __sanitizer_cov_8bit_counters_init(uint8_t* start, uint8_t* stop) {
  using Relay = void (*)(uint8_t*, uint8_t*);
  if (void* relay = dlsym(RTLD_DEFAULT, "RemediumCoverageCounters")) reinterpret_cast<Relay>(relay)(start, stop);
}

__attribute__((visibility("hidden"))) void __sanitizer_cov_pcs_init(const uintptr_t*, const uintptr_t*) {}

}  // extern "C"
