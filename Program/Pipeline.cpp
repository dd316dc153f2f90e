#include "Program/Pipeline.h"

#include "Host/Effect.h"
#include "Platform/UsableCpus.h"
#include "Program/Budget.h"
#include "Program/Errors.h"
#include "Program/Files/Encode.h"
#include "Program/Files/Format.h"
#include "Program/Files/ImageFile.h"
#include "Program/Memory.h"
#include "Program/OutputFile.h"
#include "Program/Queue.h"

#include <vips/vips.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <new>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using std::filesystem::path;

/// An image on its way.
struct Frame {
    int job;
    Image image;
    Budget::Share memory;
};

/// Starts a thread, unless the system refuses one.
bool tryStart(std::vector<std::jthread>& threads, const std::function<void()>& work) {
    try {
        threads.emplace_back([work] {
            work();
            vips_thread_shutdown();
        });
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

class Pipeline {
public:
    Pipeline(const std::vector<Job>& jobs, const std::vector<int>& todo, const Settings& settings,
             int standardOutput, EventWriter& events)
        : mJobs(jobs),
          mTodo(todo),
          mSettings(settings),
          mStandardOutput(standardOutput),
          mEvents(events),
          mEncoders(std::min<std::size_t>(usableCpus(), todo.size())),
          mSpares(mEncoders + 5) {}

    void run();

private:
    const Job& job(const Frame& frame) const { return mJobs[frame.job]; }

    bool attempt(int job, const path& file, const std::function<void()>& step);
    void stop(const std::string& why);
    std::shared_ptr<ImageFile> open(const Job& job);
    std::optional<Frame> readNext();
    void readAll();
    void noteLosses(const Frame& frame);
    void filter(Frame& frame, Host::Effect& effect);
    void write(Frame& frame);
    void writeAll();

    const std::vector<Job>& mJobs;
    const std::vector<int>& mTodo;
    const Settings& mSettings;
    const int mStandardOutput;
    EventWriter& mEvents;
    const std::size_t mEncoders;
    std::size_t mNext = 0; ///< in `mTodo`; the reader's
    std::atomic<bool> mIsStopped{false};
    Budget mBudget{availableMemory()}; // outlives the queues, whose frames have shares
    Queue<Frame> mToFilter{1}, mToWrite{1};
    /// Worlds of images that are written, for those to come: new pages cost as much as decoding. More than
    /// there are worlds on the way, so giving back never waits.
    Queue<Host::World> mSpares;
};

/// Runs one step for one job. A failure is reported and gives false.
bool Pipeline::attempt(int job, const path& file, const std::function<void()>& step) {
    const auto failed = [&](const std::string& why) { mEvents.send({Event::Kind::Failed, job, why}); };
    try {
        step();
        return true;
    } catch (const std::bad_alloc&) {
        failed(file.string() + ": out of memory");
    } catch (const CommonFailure& failure) {
        stop(failure.what());
    } catch (const Failure& failure) {
        failed(failure.what());
    } catch (const std::exception& error) {
        failed(file.string() + ": " + error.what());
    }
    return false;
}

void Pipeline::stop(const std::string& why) {
    if (!mIsStopped.exchange(true))
        mEvents.send({Event::Kind::Stopped, 0, why});
}

std::shared_ptr<ImageFile> Pipeline::open(const Job& job) {
    if (job.opened)
        return job.opened;
    try {
        return std::make_shared<ImageFile>(job.input, mSettings.reading);
    } catch (const Failure&) {
        checkDirectoryExists(job.input);
        throw;
    }
}

/// The next image that can be read.
std::optional<Frame> Pipeline::readNext() {
    std::optional<Frame> frame;
    while (!frame && !mIsStopped && mNext < mTodo.size()) {
        const int index = mTodo[mNext++];
        const path& input = mJobs[index].input;
        mEvents.send({Event::Kind::Started, index});
        attempt(index, input, [&] {
            const auto file = open(mJobs[index]);
            Budget::Share memory = mBudget.take(file->memory());
            frame =
                Frame{index, file->decode(mSpares.tryPop().value_or(Host::World(0, 0))), std::move(memory)};
            noteLosses(*frame);
        });
    }
    return frame;
}

void Pipeline::readAll() {
    // One image read ahead is enough, and none is held while another waits.
    for (mToFilter.waitForRoom(); std::optional<Frame> frame = readNext(); mToFilter.waitForRoom())
        mToFilter.push(std::move(*frame));
    mToFilter.close();
}

void Pipeline::noteLosses(const Frame& frame) {
    const auto note = [&](const std::string& text) { mEvents.send({Event::Kind::Note, frame.job, text}); };
    for (const std::string& text : frame.image.notes)
        note(text);
}

void Pipeline::filter(Frame& frame, Host::Effect& effect) {
    for (Page& page : frame.image.pages) {
        const Host::Result result =
            effect.render(page.world, page.world, mSettings.values, {.current = job(frame).frame});
        if (!result.ok())
            throw Failure(job(frame).input.string() + ": " + result.text());
    }
}

void Pipeline::write(Frame& frame) {
    const path& output = job(frame).output;
    const Format& format = job(frame).format ? *job(frame).format : *frame.image.format;
    if (!mIsStopped && attempt(frame.job, outputName(output), [&] {
            const Bytes bytes = encodeImage(frame.image, format, outputName(output), mSettings.writing);
            if (output == kStandardStream)
                writeStandardOutput(mStandardOutput, bytes);
            else
                replaceFile(output, bytes);
        }))
        mEvents.send({Event::Kind::Done, frame.job});
    mSpares.push(std::move(frame.image.pages.front().world));
}

void Pipeline::writeAll() {
    while (std::optional<Frame> frame = mToWrite.pop())
        write(*frame);
}

void Pipeline::run() {
    std::vector<std::jthread> readers, writers;
    // Goes before the threads, also where an exception unwinds this: nobody waits for what doesn't come.
    const struct Closer {
        Pipeline& pipeline;
        ~Closer() {
            pipeline.mToFilter.close();
            pipeline.mToWrite.close();
            pipeline.mBudget.close();
        }
    } closer{*this};

    // A frame that is tried again must not be blamed for a process that dies in the setup.
    const bool isRetry = mTodo.size() == 1 && mJobs.size() > 1;
    const bool readsAhead = !isRetry && tryStart(readers, [this] { readAll(); });
    const Host::Module module(mSettings.module);
    Host::Effect effect(module);
    while (writers.size() < mEncoders && tryStart(writers, [this] { writeAll(); }))
        continue;
    while (std::optional<Frame> frame = readsAhead ? mToFilter.pop() : readNext()) {
        if (mIsStopped || !attempt(frame->job, job(*frame).input, [&] { filter(*frame, effect); }))
            continue;
        if (writers.empty())
            write(*frame);
        else
            mToWrite.push(std::move(*frame));
    }
}

} // namespace

void runPipeline(const std::vector<Job>& jobs, const std::vector<int>& todo, const Settings& settings,
                 int standardOutput, EventWriter& events) {
    Pipeline(jobs, todo, settings, standardOutput, events).run();
}

} // namespace Tessaloom::BilateralBlur::Program
