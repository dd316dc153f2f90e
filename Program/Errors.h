#pragma once

#include <stdexcept>

namespace Tessaloom::BilateralBlur::Program {

/// The program was called with arguments that it doesn't accept: exit code 2. what() is one line that names
/// the option or file and says what is accepted.
class WrongUse : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Something failed at run time: exit code 1. what() is one line that names the file.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A failure that every other frame of a sequence would meet too, such as a full disk.
class CommonFailure : public Failure {
public:
    using Failure::Failure;
};

} // namespace Tessaloom::BilateralBlur::Program
