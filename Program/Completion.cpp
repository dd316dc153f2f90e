#include "Program/Completion.h"

namespace Tessaloom::BilateralBlur::Program {

namespace {

/// A text for single quotes of fish.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char character : text)
        result.append(character == '\'' ? "\\" : "").push_back(character);
    return result;
}

/// Where nothing of ours fits, bash completes file names.
std::string bashCompletion(const CommandLine& line) {
    std::string names, choices;
    for (const CLI::Option* option : optionsOf(line)) {
        names += option->get_name() + " ";
        if (!wordsOf(*option).empty())
            choices += "    " + option->get_name() + ") words='" + joined(wordsOf(*option), " ") + "' ;;\n";
    }
    return "_bilateral_blur() {\n"
           "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} words=\n"
           "    [[ $word == = ]] && word=\n"
           "    [[ $before == = ]] && before=${COMP_WORDS[COMP_CWORD-2]}\n"
           "    case $before in\n" +
           choices + "    *) [[ $word == -* ]] && words='" + names +
           "' ;;\n"
           "    esac\n"
           "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$word\")\n"
           "}\n"
           "complete -o default -F _bilateral_blur bilateral-blur\n";
}

std::string fishCompletion(const CommandLine& line) {
    std::string script;
    for (const CLI::Option* option : optionsOf(line)) {
        const std::string description = escaped(option->get_description());
        script += "complete -c bilateral-blur -l " + option->get_lnames().front();
        if (!wordsOf(*option).empty())
            script += " -xa '" + joined(wordsOf(*option), " ") + "'";
        else if (option->get_items_expected() > 0)
            script += option->get_type_name() == "PATH" ? " -rF" : " -x";
        script += " -d '" + description + "'\n";
    }
    return script;
}

} // namespace

std::string completionText(const std::string& shell, const CommandLine& line) {
    return shell == "bash" ? bashCompletion(line) : fishCompletion(line);
}

} // namespace Tessaloom::BilateralBlur::Program
