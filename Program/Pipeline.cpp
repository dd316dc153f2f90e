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
struct Item {
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
    Pipeline(const std::vector<Job>& jobs, const Round& round, const Settings& settings, int standardOutput,
             EventWriter& events)
        : mJobs(jobs),
          mRound(round),
          mSettings(settings),
          mStandardOutput(standardOutput),
          mEvents(events),
          mEncoders(std::min<std::size_t>(usableCpus(), round.jobs.size())),
          mSpares(kRead + kWaiting + kFiltered + kWaiting + mEncoders + 1) {}

    void run();

private:
    /// Images at a step, or between two.
    static constexpr std::size_t kRead = 1, kFiltered = 1, kWaiting = 1;

    const Job& job(const Item& item) const { return mJobs[item.job]; }

    bool attempt(int job, const path& file, const std::function<void()>& step);
    void stop(const std::string& why);
    ImageFile open(const Job& job);
    std::optional<Item> readNext();
    void readAll();
    void noteLosses(const Item& item);
    void filter(Item& item, Host::Effect& effect);
    void write(Item& item);
    void writeAll();

    const std::vector<Job>& mJobs;
    const Round& mRound;
    const Settings& mSettings;
    const int mStandardOutput;
    EventWriter& mEvents;
    const std::size_t mEncoders;
    std::size_t mNext = 0; ///< in the round; the reader's
    std::atomic<bool> mIsStopped{false};
    Budget mBudget{availableMemory()}; // outlives the queues, whose frames have shares
    Queue<Item> mToFilter{kWaiting}, mToWrite{kWaiting};
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
        failed(file.string() + ": " +
               (*error.what() ? error.what() : "a library failed and doesn't say why"));
    } catch (...) { // what the libraries throw isn't always derived from the standard's
        failed(file.string() + ": a library failed and doesn't say why");
    }
    return false;
}

void Pipeline::stop(const std::string& why) {
    if (!mIsStopped.exchange(true))
        mEvents.send({Event::Kind::Stopped, 0, why});
}

ImageFile Pipeline::open(const Job& job) {
    try {
        return ImageFile(job.input, mSettings.reading);
    } catch (const Failure&) {
        // That makes all of them fail.
        if (mJobs.size() > 1 && std::all_of(mJobs.begin(), mJobs.end(), [&](const Job& other) {
                return other.input.parent_path() == job.input.parent_path();
            }))
            checkDirectoryExists(job.input);
        throw;
    }
}

/// The next image that can be read.
std::optional<Item> Pipeline::readNext() {
    std::optional<Item> item;
    while (!item && !mIsStopped && mNext < mRound.jobs.size()) {
        const int index = mRound.jobs[mNext++];
        const path& input = mJobs[index].input;
        mEvents.send({Event::Kind::Started, index});
        attempt(index, input, [&] {
            ImageFile file = open(mJobs[index]);
            Budget::Share memory =
                mBudget.take(file.checkFor(mJobs[index].format, outputName(mJobs[index].output)));
            item = Item{index, file.decode(mSpares.tryPop().value_or(Host::World(0, 0))), std::move(memory)};
            noteLosses(*item);
        });
    }
    return item;
}

void Pipeline::readAll() {
    // One image read ahead is enough, and none is held while another waits.
    for (mToFilter.waitForRoom(); std::optional<Item> item = readNext(); mToFilter.waitForRoom())
        mToFilter.push(std::move(*item));
    mToFilter.close();
}

void Pipeline::noteLosses(const Item& item) {
    const auto note = [&](const std::string& text) { mEvents.send({Event::Kind::Note, item.job, text}); };
    for (const std::string& text : item.image.notes)
        note(text);
    const Format& format = job(item).format ? *job(item).format : *item.image.format;
    for (const std::string& text : lossesIn(format, item.image, mSettings.reading.keepsDepth))
        note(text);
}

void Pipeline::filter(Item& item, Host::Effect& effect) {
    std::vector<Page>& pages = item.image.pages;
    for (std::size_t i = 0; i < pages.size(); ++i) {
        Page& page = pages[i];
        mEvents.send(
            {Event::Kind::Step, item.job,
             "filtering " + std::to_string(page.width) + " x " + std::to_string(page.height) + " pixels" +
                 (pages.size() > 1 ? ", page " + std::to_string(i + 1) + " of " + std::to_string(pages.size())
                                   : "")});
        const Host::Result result =
            effect.render(page.world, page.world, mSettings.values, {.current = job(item).frame});
        if (!result.ok())
            throw Failure(job(item).input.string() + ": " + result.text());
    }
}

void Pipeline::write(Item& item) {
    const path& output = job(item).output;
    const Format& format = job(item).format ? *job(item).format : *item.image.format;
    if (mJobs.size() == 1)
        mEvents.send({Event::Kind::Step, item.job, "writing " + outputName(output)});
    if (!mIsStopped && attempt(item.job, outputName(output), [&] {
            const Bytes bytes = encodeImage(item.image, format, outputName(output), mSettings.writing);
            if (output == kStandardStream)
                writeStandardOutput(mStandardOutput, bytes);
            else
                replaceFile(output, bytes);
        }))
        mEvents.send({Event::Kind::Done, item.job});
    mSpares.push(std::move(item.image.pages.front().world));
}

void Pipeline::writeAll() {
    while (std::optional<Item> item = mToWrite.pop())
        write(*item);
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

    const auto startReader = [&] { return tryStart(readers, [this] { readAll(); }); };
    bool hasReader = mRound.readsAhead && startReader();
    const Host::Module module(mSettings.module);
    Host::Effect effect(module);
    mEvents.send({Event::Kind::Ready, 0});
    hasReader = hasReader || startReader();
    while (writers.size() < mEncoders && tryStart(writers, [this] { writeAll(); }))
        continue;
    while (std::optional<Item> item = hasReader ? mToFilter.pop() : readNext()) {
        if (mIsStopped || !attempt(item->job, job(*item).input, [&] { filter(*item, effect); }))
            continue;
        if (writers.empty())
            write(*item);
        else
            mToWrite.push(std::move(*item));
    }
}

} // namespace

void runPipeline(const std::vector<Job>& jobs, const Round& round, const Settings& settings,
                 int standardOutput, EventWriter& events) {
    Pipeline(jobs, round, settings, standardOutput, events).run();
}

} // namespace Tessaloom::BilateralBlur::Program
