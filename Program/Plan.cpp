#include "Program/Plan.h"

#include "Program/Errors.h"
#include "Program/Files/Format.h"
#include "Program/OutputFile.h"
#include "Program/Sequence.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using std::filesystem::path;

bool isThere(const path& file) {
    std::error_code ignored;
    return std::filesystem::exists(file, ignored);
}

bool isDirectory(const path& file) {
    std::error_code ignored;
    return std::filesystem::is_directory(file, ignored);
}

/// True where the outputs get the names of the inputs.
bool isIntoDirectory(const Options& options) {
    return options.inputs.size() > 1 || isDirectory(options.inputs.front()) || isDirectory(options.output) ||
           options.output.ends_with('/');
}

/// Throws WrongUse where --compression is given and isn't for the format. Null is one that isn't known yet.
void checkCompression(const Options& options, const path& output, const Format* format) {
    const auto takes = [&](const Format& other) { return options.compression <= other.mostCompression; };
    if (options.compression >= 0 && !(format && takes(*format)))
        throw WrongUse(outputName(output) + ": --compression" + (options.compression == kLzw ? " lzw" : "") +
                       " is for " + formatNames(takes) +
                       (format ? std::string(", not for ") + format->name : "; name it with --format"));
}

/// The file to write for an input. In a directory it has the input's name, with the extension of --format.
path outputOf(const path& input, const Options& options) {
    if (!isIntoDirectory(options))
        return options.output;
    path name = input.filename();
    const Format *wanted = formatNamed(options.format), *named = formatOfName(name);
    if (wanted && named && wanted != named)
        name.replace_extension();
    if (wanted && wanted != named)
        name += wanted->extensions.front();
    return options.output / name;
}

/// A job with its output, whose format is null where that is the input's.
Job jobOf(const path& input, const path& output, const Options& options) {
    const Format* format = !options.format.empty()     ? formatNamed(options.format)
                           : output == kStandardStream ? nullptr
                                                       : &formatOf(output);
    checkCompression(options, output, format);
    return {.input = input, .output = output, .format = format};
}

void addDirectory(Run& run, const path& directory, const Options& options) {
    constexpr std::size_t kMostNamed = 5;
    std::vector<std::string> images, others;
    std::error_code error, ignored;
    for (std::filesystem::directory_iterator at(directory, error), end; !error && at != end;
         at.increment(error)) {
        const std::string name = at->path().filename().string();
        const bool isImage = !name.starts_with('.') && formatOfName(name) && at->is_regular_file(ignored);
        (isImage ? images : others).push_back(name);
    }
    if (error)
        throw Failure(directory.string() + ": " + error.message());
    if (images.empty())
        throw Failure(directory.string() + ": there are no images in it, whose names end in " +
                      formatExtensions());
    std::sort(images.begin(), images.end());
    std::sort(others.begin(), others.end());
    for (const std::string& name : images)
        run.jobs.push_back(jobOf(directory / name, outputOf(name, options), options));
    if (!others.empty())
        run.notes.push_back(directory.string() +
                            ": no images by their names, so left out: " + firstOf(others, kMostNamed));
}

/// The frames of a rising range that aren't in `present`, which is rising too.
std::vector<int> missingFrom(const std::vector<int>& present, const std::vector<int>& wanted) {
    std::vector<int> missing;
    std::set_difference(wanted.begin(), wanted.end(), present.begin(), present.end(),
                        std::back_inserter(missing));
    return missing;
}

std::vector<int> gapsOf(const std::vector<int>& frames) {
    std::vector<int> gaps;
    for (std::size_t i = 1; i < frames.size(); ++i)
        for (int frame = frames[i - 1] + 1; frame < frames[i]; ++frame)
            gaps.push_back(frame);
    return gaps;
}

/// Throws WrongUse where writing these frames would replace files that belong to the input.
void checkApart(const FramePattern& input, const FramePattern& output, const std::vector<int>& frames) {
    std::error_code ignored;
    if (!std::filesystem::equivalent(input.directory(), output.directory(), ignored))
        return;
    for (const int frame : frames)
        if (input.frameOf(output.file(frame).filename().string()))
            throw WrongUse(output.file(frame).string() +
                           ": the output's frames would replace the input's; name another directory or file");
}

void addSequence(Run& run, const std::string& name, const FramePattern& input, const Options& options) {
    const path pattern = outputOf(name, options);
    const std::optional<FramePattern> output = FramePattern::parse(pattern);
    if (!output)
        throw WrongUse(pattern.string() + ": a sequence as INPUT needs one as OUTPUT, with #### or %04d");
    const Job any = jobOf(name, pattern, options);
    if (const std::optional<path> padded = input.patternOfPadded())
        throw WrongUse(name + ": there are files whose numbers have leading zeros; name them all with " +
                       padded->string());
    const std::vector<int> existing = input.existingFrames();
    const std::vector<int> wanted = options.frames ? parseFrames(*options.frames) : existing;
    const std::vector<int> missing = missingFrom(existing, wanted);
    if (missing.size() == wanted.size())
        throw Failure(name + ": no frames found" +
                      (options.frames ? " with a number of --frames " + *options.frames : ""));
    checkApart(input, *output, wanted);

    for (const int frame : wanted) {
        Job& job = run.jobs.emplace_back(any);
        job.input = input.file(frame);
        job.output = output->file(frame);
        job.frame = frame;
        if (std::binary_search(missing.begin(), missing.end(), frame)) {
            job.state = Job::State::Failed;
            job.reason = name + ": no such frames: " + framesText(missing);
        }
    }
    run.isSequence = options.inputs.size() == 1;
    if (!options.frames && !gapsOf(wanted).empty())
        run.notes.push_back(name + ": missing frames " + framesText(gapsOf(wanted)));
}

void add(Run& run, const std::string& input, const Options& options) {
    const std::optional<FramePattern> pattern = isThere(input) ? std::nullopt : FramePattern::parse(input);
    if (input == kStandardStream && isIntoDirectory(options))
        throw WrongUse("standard input has no name for a file in a directory; name the file as OUTPUT");
    if (options.frames && !pattern)
        throw WrongUse("--frames needs a sequence as INPUT, a name with #### or %04d: " + input);
    if (pattern)
        addSequence(run, input, *pattern, options);
    else if (isDirectory(input))
        addDirectory(run, input, options);
    else
        run.jobs.push_back(jobOf(input, outputOf(input, options), options));
}

/// Throws WrongUse where OUTPUT isn't a directory and has to be one.
void checkDirectory(const Options& options) {
    if (!isIntoDirectory(options) || isDirectory(options.output))
        return;
    const bool isOther = options.output == kStandardStream || isThere(options.output);
    throw WrongUse(outputName(options.output) +
                   (isOther ? ": not a directory" : ": there is no such directory") +
                   "; several inputs, or a directory, are written into one that exists");
}

/// A file, whatever its name; nothing where there is none.
std::optional<std::pair<dev_t, ino_t>> identityOf(const path& file) {
    struct stat status;
    if (stat(file.c_str(), &status) != 0)
        return std::nullopt;
    return std::pair(status.st_dev, status.st_ino);
}

/// Throws WrongUse where two jobs would write one file, or one would replace an input.
void checkOutputs(const std::vector<Job>& jobs) {
    std::map<path, path> writers;
    std::set<std::optional<std::pair<dev_t, ino_t>>> inputs;
    for (const Job& job : jobs) {
        const auto [writer, isFirst] = writers.emplace(job.output, job.input);
        if (!isFirst)
            throw WrongUse(writer->second.string() + " and " + job.input.string() +
                           " would both be written to " + job.output.string());
        inputs.insert(identityOf(job.input));
    }
    inputs.erase(std::nullopt);
    for (const Job& job : jobs)
        if (inputs.count(identityOf(job.output)) != 0)
            throw WrongUse(job.output.string() + ": this input would be replaced; name another directory, "
                                                 "or one input and itself as OUTPUT");
}

void skipExisting(Run& run, const std::string& output) {
    const std::size_t before = run.jobs.size();
    std::erase_if(run.jobs,
                  [](const Job& job) { return job.state == Job::State::Waiting && isThere(job.output); });
    if (const std::size_t skipped = before - run.jobs.size())
        run.notes.push_back(output + ": " + std::to_string(skipped) +
                            (skipped == 1 ? " output exists" : " outputs exist") + " already");
}

} // namespace

Run makePlan(const Options& options) {
    checkDirectory(options);
    if (options.output == kStandardStream && isatty(STDOUT_FILENO))
        throw WrongUse("standard output is a terminal; redirect it or name a file as OUTPUT");
    Run run;
    for (const std::string& input : options.inputs)
        add(run, input, options);
    if (isIntoDirectory(options))
        checkOutputs(run.jobs);
    if (options.output == kStandardStream)
        return run;
    checkReplaceable(run.jobs.front().output);
    if (options.skipExisting)
        skipExisting(run, options.output);
    return run;
}

} // namespace Tessaloom::BilateralBlur::Program
