#pragma once

namespace Tessaloom::BilateralBlur::Program {

/// Keeps what a module and the libraries below it print from mixing with the program's own output: from now on it
/// goes to standard error if `verbose`, else nowhere. Gives a descriptor of standard output, which is the
/// program's alone.
int takeStandardOutput(bool verbose);

} // namespace Tessaloom::BilateralBlur::Program
