/* The start file of the device-shaped hook library, doing what Android's
 * crtbegin_so.o does for every shared library: the library's own
 * __dso_handle, which __cxa_atexit records with each static destructor, and
 * a destructor that runs those when the dynamic linker unloads the library
 * (bionic's libc exports __cxa_finalize, not a per-library atexit). Compiled
 * with the objects' flags, so it carries the same BTI and PAC marking. */

extern void __cxa_finalize(void* dso_handle);
extern int __cxa_atexit(void (*destructor)(void*), void* argument, void* dso_handle);

__attribute__((visibility("hidden"))) void* __dso_handle = &__dso_handle;

__attribute__((visibility("hidden"), destructor)) void __on_dlclose(void) { __cxa_finalize(&__dso_handle); }

/* atexit from a shared library registers with this library's handle; on
 * arm64 bionic exports no atexit for it. */
__attribute__((visibility("hidden"))) int atexit(void (*function)(void)) {
  return __cxa_atexit((void (*)(void*))function, (void*)0, &__dso_handle);
}
