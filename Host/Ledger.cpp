#include "Host/Ledger.h"

#include <utility>

namespace Tessaloom::BilateralBlur::Host {

void Ledger::acquire(const std::string& thing) {
    const std::lock_guard lock(mMutex);
    ++mAcquired[thing];
}

bool Ledger::release(const std::string& thing) {
    const std::lock_guard lock(mMutex);
    const auto found = mAcquired.find(thing);
    if (found == mAcquired.end()) {
        mMistakes.push_back(thing + " was released but not acquired");
        return false;
    }
    if (--found->second == 0)
        mAcquired.erase(found);
    return true;
}

void Ledger::noteMistake(std::string text) {
    const std::lock_guard lock(mMutex);
    mMistakes.push_back(std::move(text));
}

std::vector<std::string> Ledger::settle() {
    const std::lock_guard lock(mMutex);
    std::vector<std::string> texts = std::exchange(mMistakes, {});
    for (const auto& [thing, count] : std::exchange(mAcquired, {}))
        texts.push_back(thing + " wasn't released" +
                        (count > 1 ? " (" + std::to_string(count) + " times)" : ""));
    return texts;
}

} // namespace Tessaloom::BilateralBlur::Host
