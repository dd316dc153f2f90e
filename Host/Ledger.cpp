#include "Host/Ledger.h"

#include <utility>

namespace Tessaloom::BilateralBlur::Host {

void Ledger::take(const std::string& thing) {
    const std::lock_guard lock(mMutex);
    ++mOut[thing];
}

bool Ledger::giveBack(const std::string& thing) {
    const std::lock_guard lock(mMutex);
    const auto found = mOut.find(thing);
    if (found == mOut.end()) {
        mMistakes.push_back(thing + " was given back but not taken");
        return false;
    }
    if (--found->second == 0)
        mOut.erase(found);
    return true;
}

void Ledger::noteMistake(std::string text) {
    const std::lock_guard lock(mMutex);
    mMistakes.push_back(std::move(text));
}

std::vector<std::string> Ledger::settle() {
    const std::lock_guard lock(mMutex);
    std::vector<std::string> texts = std::exchange(mMistakes, {});
    for (const auto& [thing, count] : std::exchange(mOut, {}))
        texts.push_back(thing + " wasn't given back" +
                        (count > 1 ? " (" + std::to_string(count) + " times)" : ""));
    return texts;
}

} // namespace Tessaloom::BilateralBlur::Host
