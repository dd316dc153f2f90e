#include "Host/Program/Sequence.h"

#include "Host/Program/Errors.h"

#include <algorithm>
#include <charconv>
#include <regex>
#include <set>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using std::filesystem::path;

constexpr std::size_t kMostDigits = 9; // leading zeros apart: what surely fits an int
constexpr int kMostFrames = 10'000'000;

std::optional<int> parseFrame(const std::string& digits) {
    const std::size_t zeros = std::min(digits.find_first_not_of('0'), digits.size());
    int frame = 0;
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, frame);
    if (digits.size() - zeros > kMostDigits || error != std::errc{} || stop != end)
        return std::nullopt;
    return frame;
}

[[noreturn]] void refuseFrames(const std::string& text, const std::string& why) {
    throw WrongUse("--frames " + text + ": " + why +
                   "; use numbers and ranges such as 1-240, 1-240x2 or 7,10-20");
}

void addFrames(const std::string& part, const std::string& text, std::set<int>& frames) {
    static const std::regex kRange("([0-9]+)(?:-([0-9]+)(?:x([0-9]+))?)?");
    std::smatch match;
    if (!std::regex_match(part, match, kRange))
        refuseFrames(text, "\"" + part + "\" is no range of frames");
    const auto number = [&](int group, int absent) {
        if (!match[group].matched)
            return absent;
        const std::optional<int> value = parseFrame(match[group]);
        if (!value)
            refuseFrames(text, "\"" + match[group].str() + "\" is too large");
        return *value;
    };
    const int first = number(1, 0), last = number(2, first), step = number(3, 1);
    if (last < first)
        refuseFrames(text, "the range " + part + " is reversed");
    if (step == 0)
        refuseFrames(text, "the step of " + part + " is zero");
    if ((last - first) / step >= kMostFrames)
        refuseFrames(text, "the range " + part + " is too long");
    for (int frame = first; frame <= last; frame += step)
        frames.insert(frame);
}

} // namespace

std::optional<FramePattern> FramePattern::parse(const path& file) {
    static const std::regex kNumber("#+|%(0[1-9])?d");
    const std::string name = file.filename().string();
    const std::sregex_iterator first(name.begin(), name.end(), kNumber), end;
    if (first == end)
        return std::nullopt;
    if (std::next(first) != end)
        throw WrongUse(file.string() + ": the name holds two frame numbers; use one, as #### or %04d");
    FramePattern pattern;
    pattern.mFolder = file.has_parent_path() ? file.parent_path() : ".";
    pattern.mBefore = first->prefix();
    pattern.mAfter = first->suffix();
    const std::string number = first->str();
    if (number[0] == '#')
        pattern.mDigits = static_cast<int>(number.size());
    else if ((*first)[1].matched)
        pattern.mDigits = number[2] - '0';
    return pattern;
}

path FramePattern::file(int frame) const {
    std::string digits = std::to_string(frame);
    digits.insert(0, std::max<std::size_t>(digits.size(), mDigits) - digits.size(), '0');
    return mFolder / (mBefore + digits + mAfter);
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

std::vector<int> FramePattern::existingFrames() const {
    std::vector<int> frames;
    std::error_code error;
    for (std::filesystem::directory_iterator at(mFolder, error), end; !error && at != end;
         at.increment(error))
        if (const auto frame = frameOf(at->path().filename().string()))
            frames.push_back(*frame);
    if (error)
        throw Failure(mFolder.string() + ": " + error.message());
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
