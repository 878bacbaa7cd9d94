// Linked, in AddressSanitizer fuzz builds only, into the libraries a camera
// process loads and unloads: the hook library, the core and the message
// centre. The call-sequence fuzzer loads and unloads them once per camera
// process, hundreds of thousands of times in one process, and two pieces of
// the sanitizer's bookkeeping keep something for every load that dlclose
// never gives back:
// - the runtime records each registered global (about 200 in the hook library) in
//   a list it never shrinks, also when the library is unloaded: ~5 KB a load;
// - its __cxa_atexit interceptor adds a process-exit entry of its own for
//   every exit-time destructor the library registers; those entries never
//   run before exit, and glibc cannot reuse the slots around them: 64 bytes
//   a destructor, and a block allocated without a free every 32, which also
//   makes inputs look as if they leaked.
// These hidden definitions take both calls inside each library. The globals'
// redzones are poisoned and unpoisoned here, without a record: an overflow of
// a global still stops the fuzzer, reported as a use-after-poison next to the
// global. Exit-time destructors go to the C library's __cxa_atexit, which
// __cxa_finalize clears at each unload. Nothing else changes in the libraries.
#include <dlfcn.h>
#include <sanitizer/asan_interface.h>

#include <cstdint>

namespace {

// The compiler's record of one instrumented global (compiler-rt's
// __asan_global, ABI version 8): the global, its size and its size with the
// redzone that follows it.
struct InstrumentedGlobal {
  uintptr_t begin;
  uintptr_t size;
  uintptr_t sizeWithRedzone;
  const char* name;
  const char* moduleName;
  uintptr_t hasDynamicInit;
  void* location;
  uintptr_t odrIndicator;
};
static_assert(sizeof(InstrumentedGlobal) == 8 * sizeof(uintptr_t), "the compiler's global record");

template <typename Apply>
void ForEachGlobal(void* start, void* stop, Apply apply) {
  auto* global = static_cast<InstrumentedGlobal*>(start);
  for (; global != nullptr && global + 1 <= static_cast<InstrumentedGlobal*>(stop); ++global) apply(*global);
}

}  // namespace

extern "C" {

// The library's module constructor and destructor call these with its
// globals' records and a flag of its own (registered or not).
__attribute__((visibility("hidden"))) void __asan_register_elf_globals(uintptr_t* flag, void* start, void* stop) {
  if (*flag != 0) return;
  ForEachGlobal(start, stop, [](const InstrumentedGlobal& global) {
    __asan_poison_memory_region(reinterpret_cast<void*>(global.begin + global.size),
                                global.sizeWithRedzone - global.size);
  });
  *flag = 1;
}

__attribute__((visibility("hidden"))) void __asan_unregister_elf_globals(uintptr_t* flag, void* start, void* stop) {
  if (*flag == 0) return;
  ForEachGlobal(start, stop, [](const InstrumentedGlobal& global) {
    __asan_unpoison_memory_region(reinterpret_cast<void*>(global.begin), global.sizeWithRedzone);
  });
  *flag = 0;
}

__attribute__((visibility("hidden"))) int __cxa_atexit(void (*function)(void*), void* argument, void* dso) {
  using AtExit = int (*)(void (*)(void*), void*, void*);
  // OK: the next definition after the library is the C library's, not the interceptor's.
  static const auto real = reinterpret_cast<AtExit>(dlsym(RTLD_NEXT, "__cxa_atexit"));
  return real != nullptr ? real(function, argument, dso) : -1;
}

}  // extern "C"
