#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Host {

/// The host's book of all that an effect has taken and not given back: suites, memory handles and locks on
/// them, parameters, layers. Things are told apart by their text. Any thread may write in it.
class Ledger {
public:
    /// Notes one more of this thing as taken.
    void take(const std::string& thing);

    /// Notes one of this thing as given back. Where none was out, notes that as a mistake and returns false.
    bool giveBack(const std::string& thing);

    void noteMistake(std::string text);

    /// All mistakes, then everything that is still out, each in a few words; starts a new page. Empty when
    /// the book is balanced.
    std::vector<std::string> settle();

private:
    std::mutex mMutex;
    std::map<std::string, int> mOut;
    std::vector<std::string> mMistakes;
};

} // namespace Tessaloom::BilateralBlur::Host
