// What is wrong with a state directory, a card file or a capture, in one line for a person.
#pragma once

#include <stdexcept>

namespace vlc {

class StateError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace vlc
