#include "Program/Sequence.h"

#include "Program/Errors.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <utility>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using std::filesystem::path;

constexpr std::size_t kMostDigits = 9; // leading zeros apart: what surely fits an int
constexpr int kMostFrames = 1'000'000; // more would be a slip, and take the machine's memory

std::optional<int> parseFrame(const std::string& digits) {
    const std::size_t zeros = std::min(digits.find_first_not_of('0'), digits.size());
    unsigned frame = 0; // unsigned, so that no minus is read
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, frame);
    if (digits.size() - zeros > kMostDigits || error != std::errc{} || stop != end)
        return std::nullopt;
    return static_cast<int>(frame);
}

[[noreturn]] void refuseFrames(const std::string& text, const std::string& why) {
    throw WrongUse("--frames " + text + ": " + why +
                   "; use numbers and ranges such as 1-240, 1-240x2 or 7,10-20");
}

/// The part of a text before a character, and after it if the text has that character.
std::pair<std::string, std::optional<std::string>> split(const std::string& text, char mark) {
    const std::size_t at = text.find(mark);
    if (at == std::string::npos)
        return {text, std::nullopt};
    return {text.substr(0, at), text.substr(at + 1)};
}

void addFrames(const std::string& part, const std::string& text, std::set<int>& frames) {
    const auto number = [&](const std::string& digits) {
        if (const std::optional<int> value = parseFrame(digits))
            return *value;
        refuseFrames(text, "\"" + part + "\" is not a frame range");
    };
    const auto [firstText, rest] = split(part, '-');
    const int first = number(firstText);
    const auto [lastText, stepText] = split(rest.value_or(firstText), 'x');
    const int last = number(lastText), step = stepText ? number(*stepText) : 1;
    if (last < first)
        refuseFrames(text, "the range " + part + " is reversed");
    if (step == 0)
        refuseFrames(text, "the step of " + part + " is zero");
    if ((last - first) / step + static_cast<int>(frames.size()) >= kMostFrames)
        refuseFrames(text, "more than " + std::to_string(kMostFrames) + " frames");
    for (int frame = first; frame <= last; frame += step)
        frames.insert(frame);
}

/// The place of a frame number in a name, and how many digits it has at least.
struct NumberPlace {
    std::size_t start, length;
    int digits;
};

/// The first number at `from` or after it.
std::optional<NumberPlace> findNumber(const std::string& name, std::size_t from) {
    for (std::size_t at = from; at < name.size(); ++at) {
        if (name[at] == '#') {
            const std::size_t length = std::min(name.find_first_not_of('#', at), name.size()) - at;
            return NumberPlace{at, length, static_cast<int>(length)};
        }
        if (name.compare(at, 2, "%d") == 0)
            return NumberPlace{at, 2, 1};
        if (at + 3 < name.size() && name.compare(at, 2, "%0") == 0 && name[at + 2] >= '1' &&
            name[at + 2] <= '9' && name[at + 3] == 'd')
            return NumberPlace{at, 4, name[at + 2] - '0'};
    }
    return std::nullopt;
}

} // namespace

std::optional<FramePattern> FramePattern::parse(const path& file) {
    const std::string name = file.filename().string();
    const std::optional<NumberPlace> number = findNumber(name, 0);
    if (!number)
        return std::nullopt;
    const std::size_t end = number->start + number->length;
    if (findNumber(name, end))
        throw WrongUse(file.string() + ": the name holds two frame numbers; use one, as #### or %04d");
    FramePattern pattern;
    pattern.mDirectory = file.has_parent_path() ? file.parent_path() : ".";
    pattern.mBefore = name.substr(0, number->start);
    pattern.mAfter = name.substr(end);
    pattern.mDigits = number->digits;
    return pattern;
}

path FramePattern::file(int frame) const {
    std::string digits = std::to_string(frame);
    digits.insert(0, std::max<std::size_t>(digits.size(), mDigits) - digits.size(), '0');
    return mDirectory / (mBefore + digits + mAfter);
}

std::optional<int> FramePattern::frameOf(const std::string& fileName) const {
    if (fileName.size() <= mBefore.size() + mAfter.size() || !fileName.starts_with(mBefore) ||
        !fileName.ends_with(mAfter))
        return std::nullopt;
    const std::optional<int> frame =
        parseFrame(fileName.substr(mBefore.size(), fileName.size() - mBefore.size() - mAfter.size()));
    // Only the one way to write a number that this pattern has.
    return frame && file(*frame).filename() == fileName ? frame : std::nullopt;
}

std::optional<path> FramePattern::patternOfPadded() const {
    std::error_code error;
    for (std::filesystem::directory_iterator at(mDirectory, error), end; mDigits == 1 && !error && at != end;
         at.increment(error)) {
        const std::string name = at->path().filename().string();
        if (name.size() < mBefore.size() + mAfter.size() + 2 || !name.starts_with(mBefore) ||
            !name.ends_with(mAfter))
            continue;
        const std::string digits = name.substr(mBefore.size(), name.size() - mBefore.size() - mAfter.size());
        if (digits.front() == '0' && parseFrame(digits))
            return mDirectory / (mBefore + std::string(digits.size(), '#') + mAfter);
    }
    return std::nullopt;
}

std::vector<int> FramePattern::existingFrames() const {
    std::vector<int> frames;
    std::error_code error;
    for (std::filesystem::directory_iterator at(mDirectory, error), end; !error && at != end;
         at.increment(error))
        if (const auto frame = frameOf(at->path().filename().string()))
            frames.push_back(*frame);
    if (error)
        throw Failure(mDirectory.string() + ": " + error.message());
    std::sort(frames.begin(), frames.end());
    return frames;
}

std::vector<int> parseFrames(const std::string& text) {
    std::set<int> frames;
    for (std::size_t start = 0; start <= text.size();) {
        const std::size_t comma = std::min(text.find(',', start), text.size());
        addFrames(text.substr(start, comma - start), text, frames);
        start = comma + 1;
    }
    return {frames.begin(), frames.end()};
}

std::string framesText(const std::vector<int>& frames) {
    std::string text;
    for (std::size_t i = 0; i < frames.size();) {
        std::size_t last = i;
        while (last + 1 < frames.size() && frames[last + 1] == frames[last] + 1)
            ++last;
        text += text.empty() ? "" : ",";
        text += std::to_string(frames[i]);
        if (last > i)
            text.append("-").append(std::to_string(frames[last]));
        i = last + 1;
    }
    return text;
}

} // namespace Tessaloom::BilateralBlur::Program
