#pragma once

#include <stdexcept>
#include <string>
#include <vector>

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

/// A text as messages show it: what would end the line or command a terminal, in names of files for instance, is
/// written as "\\n" or "\\x1b".
std::string printable(const std::string& text);

/// What messages show of a text of any length that a user typed.
std::string shortened(const std::string& text);

/// The first names of a list, and how many more there are: "a, b and 3 more".
std::string firstOf(const std::vector<std::string>& names, std::size_t count);

} // namespace Tessaloom::BilateralBlur::Program
