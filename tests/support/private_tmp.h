// A /tmp of a test's own: the library's log lies at a fixed path, so cases that read it could not
// run side by side otherwise.
#pragma once

namespace test {

// Gives this process an empty /tmp in a mount namespace of its own. Where that is not permitted,
// the process holds a lock until it ends, so that such cases run one at a time, and starts with the
// log's files removed.
void enter_private_tmp();

} // namespace test
