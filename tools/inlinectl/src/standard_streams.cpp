#include "standard_streams.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include <fcntl.h>
#include <unistd.h>

#include "exit_code.h"

namespace inlinectl {

void hold_standard_descriptors()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        // An open takes the lowest number that is free, which is this one. The null device is
        // opened the wrong way round, so that a report written to it is an error still.
        if (fcntl(descriptor, F_GETFD) < 0 &&
            open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY) != descriptor)
            std::abort(); // with nowhere to say why
    }
}

bool standard_output_arrived()
{
    std::cout.flush();
    return std::cout.good();
}

int exit_code_of_report(int outcome)
{
    if (standard_output_arrived())
        return outcome;
    std::fprintf(stderr, "inlinectl: the report could not be written\n");
    return exit_failed;
}

} // namespace inlinectl
