// Under the leak checker: fontconfig builds its default configuration once per process, the first
// time a face is looked up, and keeps a few hundred bytes of it for the life of the process in a
// form the checker reports as lost. That one-time block is not a leak of ours, so it is not
// reported; every other allocation is still checked.
#if defined(__SANITIZE_ADDRESS__)
extern "C" const char *__lsan_default_suppressions() { return "leak:libfontconfig.so\n"; }
#endif
