// Reading and writing PNG files for the tool, through libpng. Image files proper belong
// to the library's image-file service; until that reads PNG, the tool does it itself.
#pragma once

#include <string>

#include "testpicture.h"

// False with a message in *error if the file cannot be read; alpha is dropped, grey and
// palette pictures become BGR, 16-bit samples are cut to 8.
bool ReadPng(const char* path, testpic::Picture* picture, std::string* error);
bool WritePng(const char* path, const testpic::Picture& picture, std::string* error);
// False if the tool was built without libpng.
bool PngAvailable();
