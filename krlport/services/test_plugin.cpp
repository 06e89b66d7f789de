// A tiny library that the loader's tests load by its base name, krltestplugin
// (built as libkrltestplugin_r.so, or krltestplugin_r.dll on Windows).
#if defined(_WIN32)
extern "C" __declspec(dllexport) int krl_test_plugin_value() { return 42; }
#else
extern "C" __attribute__((visibility("default"))) int krl_test_plugin_value() { return 42; }
#endif
