// Standard input, output and error as a program may count on them.
#pragma once

namespace inlinectl {

// Opens the null device for each of the three that is closed, before anything else is opened:
// a state's file would otherwise take its number, and the report would be written into it.
void hold_standard_descriptors();

// Whether everything that was written to standard output has arrived.
bool standard_output_arrived();

// The exit code of a command that has written its report: `outcome`, or, said on standard error,
// that of a failure when not all of the report arrived.
int exit_code_of_report(int outcome);

} // namespace inlinectl
