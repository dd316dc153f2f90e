// A host in C: filters raw pixels, of four bytes each in the order alpha, red, green, blue, from standard input to
// standard output: host MODULE WIDTH HEIGHT VALUE...
// The values are the sliders', in their order. Docs/makers-of-hosts.md explains each step.
#include "HostInterface/EffectHost.h"

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

typedef struct {
    PF_LayerDef record; // first, so that the record's address is the world's
    PF_Pixel8 *pixels;
} World;

static World input, output;
static PF_ParamDef sliders[8];
static int sliderCount;

static void *newHandle(uint64_t size) { return malloc(size); }
static void *lockHandle(void *handle) { return handle; }
static void unlockHandle(void *handle) {}
static const PF_HandleSuite1 handles = {newHandle, lockHandle, unlockHandle, free};

static PF_Err acquire(const char *name, int32_t version, const void **suite) {
    *suite = strcmp(name, "PF Handle Suite") == 0 ? &handles : (const void *)""; // no function of the others is called
    return PF_Err_NONE;
}
static PF_Err release(const char *name, int32_t version) { return PF_Err_NONE; }
static PF_Err pixelData8(PF_LayerDef *world, void *pixels, PF_Pixel8 **base) {
    *base = ((World *)world)->pixels;
    return PF_Err_NONE;
}
static PF_Err addParam(void *host, int32_t index, PF_ParamDef *param) {
    sliders[sliderCount++] = *param;
    return PF_Err_NONE;
}
static PF_Err checkoutParam(void *host, int32_t index, int32_t time, int32_t step, uint32_t scale, PF_ParamDef *param) {
    *param = sliders[index - 1]; // 0 is the input layer
    return PF_Err_NONE;
}
static PF_Err checkinParam(void *host, PF_ParamDef *param) { return PF_Err_NONE; }
static PF_Err checkoutLayer(void *host, int32_t index, int32_t id, const PF_RenderRequest *request, int32_t time,
                            int32_t step, uint32_t scale, PF_CheckoutResult *result) {
    result->result_rect = result->max_result_rect = request->rect;
    return PF_Err_NONE;
}
static PF_Err checkoutInput(void *host, int32_t id, PF_LayerDef **world) { return *world = &input.record, PF_Err_NONE; }
static PF_Err checkinInput(void *host, int32_t id) { return PF_Err_NONE; }
static PF_Err checkoutOutput(void *host, PF_LayerDef **world) { return *world = &output.record, PF_Err_NONE; }

static int fail(const char *text) { return fprintf(stderr, "%s\n", text), 1; }

int main(int count, char **arguments) {
    const int results = dup(STDOUT_FILENO); // the effect prints lines about GL to standard output
    dup2(STDERR_FILENO, STDOUT_FILENO);
    void *const module = dlopen(count > 3 ? arguments[1] : "", RTLD_NOW);
    PF_EntryPointFunc entry = NULL;
    if (!module || !(*(void **)&entry = dlsym(module, "EntryPointFunc")))
        return fail(dlerror());
    PF_UtilCallbacks utils = {{sprintf, strcpy}, pixelData8, NULL, NULL};
    SPBasicSuite suites = {acquire, release};
    PF_InData in = {{checkoutParam, checkinParam, addParam}, &utils, NULL, &suites, 0, 1, 25};
    PF_OutData out = {0};
    if (entry(PF_Cmd_GLOBAL_SETUP, &in, &out, NULL, NULL, NULL) || entry(PF_Cmd_PARAMS_SETUP, &in, &out, NULL, NULL, NULL))
        return fail("The setup failed.");
    if (count != 4 + sliderCount)
        return fail("Give a value for each slider.");
    for (int i = 0; i < sliderCount; ++i)
        sliders[i].u.sd.value = atoi(arguments[4 + i]);

    const PF_LayerDef record = {atoi(arguments[2]), atoi(arguments[3]), 4 * atoi(arguments[2])};
    const size_t bytes = (size_t)record.rowbytes * (size_t)record.height;
    input = (World){record, malloc(bytes)};
    output = (World){record, malloc(bytes)};
    if (fread(input.pixels, 1, bytes, stdin) != bytes)
        return fail("The input is too short.");

    PF_RenderRequest whole = {{0, 0, record.width, record.height}, 0xF};
    PF_PreRenderInput request = {whole};
    PF_PreRenderOutput promise = {{0}, {0}};
    PF_PreRenderCallbacks layers = {checkoutLayer};
    PF_PreRenderExtra before = {&request, &promise, &layers};
    PF_SmartRenderInput frame = {whole, 8};
    PF_SmartRenderCallbacks worlds = {checkoutInput, checkinInput, checkoutOutput};
    PF_SmartRenderExtra render = {&frame, &worlds};
    const int failed = entry(PF_Cmd_SMART_PRE_RENDER, &in, &out, NULL, NULL, &before) ||
                       entry(PF_Cmd_SMART_RENDER, &in, &out, NULL, NULL, &render);
    entry(PF_Cmd_GLOBAL_SETDOWN, &in, &out, NULL, NULL, NULL);
    if (failed)
        return fail(out.out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE ? out.return_msg : "The frame failed.");
    return write(results, output.pixels, bytes) == (ssize_t)bytes ? 0 : fail("The output can't be written.");
}
