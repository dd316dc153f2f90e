#include "Plugins/Shared/Helper/ScriptHelper.h"

#include "Plugins/Shared/Helper/SuiteScoper.h"

namespace Tessaloom::BilateralBlur {

namespace {

// The host may leave a handle null, for a script without a result or without an error. Such a handle is
// neither locked nor freed.
class ScriptText {
public:
    explicit ScriptText(const SuiteScoper<AEGP_MemorySuite1>& memory) : mMemory(memory) {}
    ScriptText(const ScriptText&) = delete;
    ScriptText& operator=(const ScriptText&) = delete;
    ~ScriptText() {
        if (mHandle)
            mMemory->AEGP_FreeMemHandle(mHandle);
    }

    AEGP_MemHandle* handle() { return &mHandle; }

    const char* lock() {
        void* text = nullptr;
        if (mHandle)
            mMemory->AEGP_LockMemHandle(mHandle, &text);
        return static_cast<const char*>(text);
    }

private:
    const SuiteScoper<AEGP_MemorySuite1>& mMemory;
    AEGP_MemHandle mHandle = nullptr;
};

} // namespace

std::string ScriptHelper::RunSriptAndGetStringResult(SPBasicSuite* basic, const char* script) {
    const SuiteScoper<AEGP_UtilitySuite5> utility(basic, "AEGP Utility Suite", 11);
    const SuiteScoper<AEGP_MemorySuite1> memory(basic, "AEGP Memory Suite", 1);

    // Freed in the reverse order of their making: the result first, then the error.
    ScriptText error(memory), result(memory);
    constexpr std::int32_t kPluginId = 0;
    constexpr std::uint8_t kPlatformEncoding = 0;
    utility->AEGP_ExecuteScript(kPluginId, script, kPlatformEncoding, result.handle(), error.handle());

    const char* text = result.lock();
    error.lock();
    return text ? text : std::string();
}

std::string ScriptHelper::TrimStringWhiteSpaces(const std::string& text) {
    constexpr const char* kWhiteSpace = " \t\n\v\f\r";
    const auto first = text.find_first_not_of(kWhiteSpace);
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

} // namespace Tessaloom::BilateralBlur
