#pragma once

#include <stdexcept>

namespace Tessaloom::BilateralBlur::Program {

/// The program was called in a wrong way: exit code 2. what() is one line that names the option or file and
/// says what would be accepted.
class WrongUse : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Something that was called rightly went wrong: exit code 1. what() is one line that names the file.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace Tessaloom::BilateralBlur::Program
