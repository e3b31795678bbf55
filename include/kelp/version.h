#pragma once
#include "kelpdefs.h"
extern "C" KELP_API const char* kelpVersionString();
