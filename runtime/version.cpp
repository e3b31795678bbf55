#include <kelp/version.h>
extern "C" const char* kelpVersionString() { return "0.1.0"; }
