#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

/// The files of a numbered sequence, in one of the two notations of the field: "shot.####.png", with at
/// least as many digits as there are characters, or "shot.%04d.png" ("%d": no leading zeros). The number stands
/// in the file's name, not in a directory's.
class FramePattern {
public:
    /// Nothing where the name holds no number. Throws WrongUse where it holds more than one.
    static std::optional<FramePattern> parse(const std::filesystem::path& path);

    /// The file of a frame.
    std::filesystem::path file(int frame) const;

    /// The frame whose file has this name; nothing for other names. "shot.7.png" isn't of "shot.####.png".
    std::optional<int> frameOf(const std::string& fileName) const;

    /// The frames whose files exist, rising. Throws Failure where the directory can't be read.
    std::vector<int> existingFrames() const;

    /// The pattern that fits where this one, which has no leading zeros, would leave out files whose numbers
    /// have them; nothing where there are none. Errors of the directory are `existingFrames`' to report.
    std::optional<std::filesystem::path> patternOfPadded() const;

    const std::filesystem::path& directory() const { return mDirectory; }

private:
    std::filesystem::path mDirectory; ///< never empty
    std::string mBefore, mAfter;      ///< the name around the number
    int mDigits = 1;                  ///< at least
};

/// Frames as asked for on the command line: numbers and ranges with or without a step, separated by commas,
/// as in "1-240", "1-240x2" (every second one), "7,10-20". Rising, each once. Throws WrongUse, naming the
/// option, for anything else, a reversed range among it.
std::vector<int> parseFrames(const std::string& text);

/// Rising frames in the shortest form that `parseFrames` understands, without steps: "1-3,7".
std::string framesText(const std::vector<int>& frames);

} // namespace Tessaloom::BilateralBlur::Program
