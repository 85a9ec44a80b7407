#include <cstdio>
#include <exception>
#include <stdexcept>

#include "command_line.h"
#include "exit_code.h"
#include "run_command.h"
#include "standard_streams.h"

int main(int argc, char **argv)
{
    using namespace inlinectl;
    hold_standard_descriptors();
    try {
        const CommandLine line = parse_command_line(argc, argv);
        switch (line.command) {
        case Command::none:
            if (!standard_output_arrived())
                throw std::runtime_error("standard output could not be written");
            return line.exit_code;
        case Command::run:
            return run_command(line.run);
        }
    } catch (const UsageError &error) {
        std::fprintf(stderr, "inlinectl: %s\n", error.what());
        return exit_usage;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "inlinectl: %s\n", error.what());
        return exit_failed;
    }
    return exit_failed;
}
