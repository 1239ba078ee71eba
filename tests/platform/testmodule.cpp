// A tiny module that the dynamic library tests load.
#if defined(_WIN32)
#define VELAPO_TEST_EXPORT __declspec(dllexport)
#else
#define VELAPO_TEST_EXPORT __attribute__((visibility("default")))
#endif

extern "C" VELAPO_TEST_EXPORT int VelapoTestModuleAnswer() { return 42; }
