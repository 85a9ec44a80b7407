// The log's path is fixed, so a program that measures writes to it gives itself a /tmp that is the
// directory under test, in a mount namespace of its own: one run measures one file system.
#pragma once

#include <string>

namespace bench {

// The directory becomes /tmp, for this process alone. Throws where that is not permitted.
void enter_own_tmp(const std::string &directory);

// Takes DIRECTORY and FILE-SYSTEM from the front of a program's arguments, makes the directory its
// /tmp, and returns the name of the file system. Ends the process with 2 when they are missing.
std::string enter_own_tmp_of(int &argc, char **&argv);

} // namespace bench
