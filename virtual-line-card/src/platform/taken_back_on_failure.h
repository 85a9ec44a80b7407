// What a failed start made goes again.
#pragma once

#include "vlc/state_directory.h"

namespace vlc {

class TakenBackOnFailure {
public:
    explicit TakenBackOnFailure(StateDirectory &directory) : directory_(directory)
    {
        directory_.start_over();
    }
    ~TakenBackOnFailure() { directory_.take_back(); } // nothing once the directory is complete
    TakenBackOnFailure(const TakenBackOnFailure &) = delete;
    TakenBackOnFailure &operator=(const TakenBackOnFailure &) = delete;

private:
    StateDirectory &directory_;
};

} // namespace vlc
