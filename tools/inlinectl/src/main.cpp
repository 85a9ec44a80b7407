#include <cstdio>
#include <exception>
#include <stdexcept>

#include "command_line.h"
#include "exit_code.h"
#include "standard_streams.h"

int main(int argc, char **argv)
{
    using namespace inlinectl;
    hold_standard_descriptors();
    try {
        const CommandLine line = parse_command_line(argc, argv);
        if (line.command)
            return line.command->perform();
        if (!standard_output_arrived())
            throw std::runtime_error("standard output could not be written");
        return line.exit_code;
    } catch (const UsageError &error) {
        std::fprintf(stderr, "inlinectl: %s\n", error.what());
        return exit_usage;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "inlinectl: %s\n", error.what());
        return exit_failed;
    }
}
