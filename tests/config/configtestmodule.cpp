// A module that only exists to be loaded under the file name of one of the
// system's own modules, so that the module lookup can be seen to find it.
#if defined(_WIN32)
#define VELAPO_TEST_EXPORT __declspec(dllexport)
#else
#define VELAPO_TEST_EXPORT __attribute__((visibility("default")))
#endif

extern "C" VELAPO_TEST_EXPORT int VelapoConfigTestModuleAnswer() { return 42; }
