#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Host {

/// What an effect has acquired and not released: suites, handles, parameters. Things are identified by their
/// text. Any thread may use it.
class Ledger {
public:
    void acquire(const std::string& thing);

    /// Returns false, and notes a mistake, if none was acquired.
    bool release(const std::string& thing);

    void noteMistake(std::string text);

    /// All mistakes, then all that wasn't released, each in a few words; and resets. Empty if all is well.
    std::vector<std::string> settle();

private:
    std::mutex mMutex;
    std::map<std::string, int> mAcquired;
    std::vector<std::string> mMistakes;
};

} // namespace Tessaloom::BilateralBlur::Host
