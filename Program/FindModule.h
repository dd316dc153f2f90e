#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

/// What --effect takes: the names of the effects that come with the program, as "bilateral-blur". The first is
/// meant where the option isn't given.
const std::vector<std::string>& effectKeys();

/// Of these, those whose modules are in one of the places where `findModule` looks. Throws Failure where the system
/// doesn't tell where the program is.
std::vector<std::string> presentEffects();

/// The module to load where --module isn't given: beside the program, where an installation puts it, or
/// where the build makes it. Throws WrongUse, with the effects that are there, for another key or an effect that is
/// in none of these places, and Failure where none is.
///
/// @param key what --effect says; empty where it isn't given.
std::filesystem::path findModule(const std::string& key);

} // namespace Tessaloom::BilateralBlur::Program
