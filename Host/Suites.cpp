#include "Host/Suites.h"

#include "Host/Services.h"
#include "Host/World.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace Tessaloom::BilateralBlur::Host {

namespace {

// Callbacks

int formatText(char* destination, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsprintf(destination, format, arguments);
    va_end(arguments);
    return length;
}

char* copyText(char* destination, const char* source) {
    return std::strcpy(destination, source);
}

template<class Pixel>
PF_Err pixelData(std::int32_t format, PF_LayerDef* record, Pixel** base) {
    if (!base)
        return PF_Err_BAD_CALLBACK_PARAM;
    World* world = World::of(record);
    *base = world && world->format() == format ? world->row<Pixel>(0) : nullptr;
    return *base ? PF_Err_NONE : PF_Err_BAD_CALLBACK_PARAM;
}

PF_Err pixelData8(PF_LayerDef* world, void*, PF_Pixel8** base) {
    return pixelData(PF_PixelFormat_ARGB32, world, base);
}

PF_Err pixelData16(PF_LayerDef* world, void*, PF_Pixel16** base) {
    return pixelData(PF_PixelFormat_ARGB64, world, base);
}

PF_Err pixelDataFloat(PF_LayerDef* world, void*, PF_PixelFloat** base) {
    return pixelData(PF_PixelFormat_ARGB128, world, base);
}

// "PF Handle Suite"

void* newHandle(std::uint64_t size) {
    Services* services = Services::current();
    return services ? services->handles().make(size) : nullptr;
}

void* lockHandle(void* handle) {
    Services* services = Services::current();
    return services ? services->handles().lock(handle) : nullptr;
}

void unlockHandle(void* handle) {
    if (Services* services = Services::current())
        services->handles().unlock(handle);
}

void disposeHandle(void* handle) {
    if (Services* services = Services::current())
        services->handles().dispose(handle);
}

// "PF iterateFloat Suite"

PF_LRect commonArea(const World& source, const World& destination, const PF_LRect* area) {
    PF_LRect common{0, 0, std::min(source.width, destination.width),
                    std::min(source.height, destination.height)};
    if (area)
        common = {std::max(common.left, area->left), std::max(common.top, area->top),
                  std::min(common.right, area->right), std::min(common.bottom, area->bottom)};
    return common;
}

PF_Err iterateRow(World& source, World& destination, const PF_LRect& area, int y, void* refcon,
                  PF_IteratePixelFloatFunc function) {
    auto* in = source.row<PF_PixelFloat>(y);
    auto* out = destination.row<PF_PixelFloat>(y);
    for (int x = area.left; x < area.right; ++x)
        if (const PF_Err code = function(refcon, x, y, in + x, out + x))
            return code;
    return PF_Err_NONE;
}

/// Spreads the rows over threads. The first function call to fail ends the walk; its code is the result.
PF_Err iterateOnThreads(Services& services, World& source, World& destination, const PF_LRect& area,
                        void* refcon, PF_IteratePixelFloatFunc function) {
    // Never fewer than two threads, each with its own rows: an effect that shares state between pixels shows
    // on one core and in small worlds too.
    const int count = static_cast<int>(std::max(2u, std::thread::hardware_concurrency()));
    std::atomic<PF_Err> result{PF_Err_NONE};
    const auto work = [&](int first) {
        const Services::Visit visit(services);
        for (int y = first; y < area.bottom && result == PF_Err_NONE; y += count) {
            PF_Err none = PF_Err_NONE;
            if (const PF_Err code = iterateRow(source, destination, area, y, refcon, function))
                result.compare_exchange_strong(none, code);
        }
    };
    std::vector<std::jthread> threads;
    threads.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        threads.emplace_back(work, area.top + i);
    threads.clear();
    return result;
}

PF_Err iterateFloat(PF_InData*, std::int32_t, std::int32_t, PF_LayerDef* source, const PF_LRect* area,
                    void* refcon, PF_IteratePixelFloatFunc function, PF_LayerDef* destination) {
    Services* services = Services::current();
    World* out = World::of(destination);
    World* in = source ? World::of(source) : out;
    if (!services || !function || !in || !out || in->format() != PF_PixelFormat_ARGB128 ||
        out->format() != PF_PixelFormat_ARGB128)
        return PF_Err_BAD_CALLBACK_PARAM;
    return iterateOnThreads(*services, *in, *out, commonArea(*in, *out, area), refcon, function);
}

// "AEGP Utility Suite" and "AEGP Memory Suite"

/// A new memory handle on a copy of the text; null when memory is exhausted.
AEGP_MemHandle textHandle(HandleStore& store, const std::string& text) {
    void* handle = store.make(text.size() + 1);
    if (!handle)
        return nullptr;
    std::memcpy(store.lock(handle), text.c_str(), text.size() + 1);
    store.unlock(handle);
    return handle;
}

PF_Err executeScript(std::int32_t, const char* script, std::uint8_t, AEGP_MemHandle* result,
                     AEGP_MemHandle* error) {
    Services* services = Services::current();
    if (!services || !script || !result || !error)
        return PF_Err_BAD_CALLBACK_PARAM;
    const ScriptOutcome outcome = services->runScript(script);
    *result = textHandle(services->memHandles(), outcome.result);
    *error = textHandle(services->memHandles(), outcome.error);
    return *result && *error ? PF_Err_NONE : PF_Err_OUT_OF_MEMORY;
}

PF_Err lockMemHandle(AEGP_MemHandle handle, void** address) {
    Services* services = Services::current();
    if (!services || !address)
        return PF_Err_BAD_CALLBACK_PARAM;
    *address = services->memHandles().lock(handle);
    return *address ? PF_Err_NONE : PF_Err_BAD_CALLBACK_PARAM;
}

PF_Err freeMemHandle(AEGP_MemHandle handle) {
    Services* services = Services::current();
    return services && services->memHandles().dispose(handle, true) ? PF_Err_NONE : PF_Err_BAD_CALLBACK_PARAM;
}

// The suites by name

/// The table of a suite; null if there is none of this name and version.
const void* findSuite(std::string_view name, std::int32_t version) {
    static const PF_ANSICallbacksSuite1 kAnsi{formatText};
    static const PF_HandleSuite1 kHandles{newHandle, lockHandle, unlockHandle, disposeHandle};
    static const PF_iterateFloatSuite1 kIterate{iterateFloat};
    static const AEGP_UtilitySuite5 kUtility{executeScript};
    static const AEGP_MemorySuite1 kMemory{lockMemHandle, freeMemHandle};
    static const char kNoFunctions = 0;
    // No container: a process may exit while a frame is under way.
    static const struct {
        const char* name;
        std::int32_t version;
        const void* table;
    } kSuites[] = {
        {"PF ANSI Suite", 1, &kAnsi},
        {"PF Handle Suite", 2, &kHandles},
        {"PF iterateFloat Suite", 1, &kIterate},
        {"AEGP Utility Suite", 11, &kUtility},
        {"AEGP Memory Suite", 1, &kMemory},
        {"AEGP PF Interface Suite", 1, &kNoFunctions},
        {"AEGP Layer Suite", 11, &kNoFunctions},
        {"AEGP Item Suite", 10, &kNoFunctions},
        {"DRAWBOT Draw Suite", 1, &kNoFunctions},
        {"DRAWBOT Supplier Suite", 1, &kNoFunctions},
        {"DRAWBOT Surface Suite", 2, &kNoFunctions},
        {"DRAWBOT Path Suite", 1, &kNoFunctions},
    };
    const auto* const found = std::ranges::find_if(
        kSuites, [&](const auto& suite) { return suite.version == version && name == suite.name; });
    return found == std::end(kSuites) ? nullptr : found->table;
}

std::string suiteText(const char* name, std::int32_t version) {
    return std::string("suite \"") + name + "\" version " + std::to_string(version);
}

PF_Err acquireSuite(const char* name, std::int32_t version, const void** suite) {
    Services* services = Services::current();
    if (!services || !name || !suite)
        return kSPSuiteNotFound;
    const void* table = findSuite(name, version);
    if (!table)
        return kSPSuiteNotFound;
    services->ledger().acquire(suiteText(name, version));
    *suite = table;
    return PF_Err_NONE;
}

PF_Err releaseSuite(const char* name, std::int32_t version) {
    Services* services = Services::current();
    if (!services || !name || !services->ledger().release(suiteText(name, version)))
        return PF_Err_BAD_CALLBACK_PARAM;
    return PF_Err_NONE;
}

} // namespace

SPBasicSuite* basicSuite() {
    static SPBasicSuite kBasicSuite{acquireSuite, releaseSuite};
    return &kBasicSuite;
}

PF_UtilCallbacks* utilCallbacks() {
    static PF_UtilCallbacks kUtils{{formatText, copyText}, pixelData8, pixelData16, pixelDataFloat};
    return &kUtils;
}

} // namespace Tessaloom::BilateralBlur::Host
