// The log's path is fixed, so a program that measures writes to it gives itself a /tmp that is the
// directory under test, in a mount namespace of its own: one run measures one file system.
#pragma once

#include <string>

namespace bench {

// The directory becomes /tmp, for this process alone. Throws where that is not permitted.
void enter_own_tmp(const std::string &directory);

} // namespace bench
