#include "Host/Script.h"

#include <duktape.h>

#include <memory>

namespace Tessaloom::BilateralBlur::Host {

ScriptOutcome runScript(const char* script) {
    const std::unique_ptr<duk_context, void (*)(duk_context*)> engine(duk_create_heap_default(),
                                                                      duk_destroy_heap);
    if (!engine)
        return {"", "the script engine didn't start"};
    duk_context* context = engine.get();
    if (duk_peval_string(context, script) != 0)
        return {"", duk_safe_to_string(context, -1)};
    if (duk_is_null_or_undefined(context, -1))
        return {};
    return {duk_safe_to_string(context, -1), ""};
}

} // namespace Tessaloom::BilateralBlur::Host
