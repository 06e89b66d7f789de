// A tiny library that the loader's tests load by its base name, krltestplugin
// (built as libkrltestplugin_r.so).
extern "C" __attribute__((visibility("default"))) int krl_test_plugin_value() { return 42; }
