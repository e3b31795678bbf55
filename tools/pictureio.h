// The codec round trip's pictures to and from files, through the library's image files:
// any format the library reads in, PNG out.
#pragma once

#include <string>

#include "testpicture.h"

// False with a message in *error if the file cannot be read; alpha is dropped.
bool ReadPicture(const std::string& path, testpic::Picture* picture, std::string* error);
// Writes a PNG file; false with a message in *error if it cannot be written.
bool WritePicturePng(const std::string& path, const testpic::Picture& picture, std::string* error);
