// Files that the library writes at fixed places.
#pragma once

namespace inline_service {

enum class FileBegin { empty, at_its_end };

// Opens a file to be written, which is made when it is not there, and returns its descriptor. Only
// a regular file will do, no link to one either; -1 for anything else.
int open_regular_file(const char *path, FileBegin begin);

} // namespace inline_service
