// A core library that lacks the "RemediumGetInstance" entry (a broken install).
extern "C" __attribute__((visibility("default"))) int RemediumCoreVersion() { return 0; }
