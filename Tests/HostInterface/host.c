// A host in C: filters raw pixels, of four bytes each in the order alpha, red, green, blue, from a file into another:
//   host MODULE WIDTH HEIGHT INPUT OUTPUT VALUE...
// The values are the sliders', in their order. Docs/makers-of-hosts.md explains each step.
#include "HostInterface/EffectHost.h"

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static PF_LayerDef worlds[2]; // the input and the output
static PF_Pixel8 *pixels[2];
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
static PF_Err checkoutInput(void *host, int32_t id, PF_LayerDef **world) { return *world = &worlds[0], 0; }
static PF_Err checkoutOutput(void *host, PF_LayerDef **world) { return *world = &worlds[1], 0; }
static PF_Err pixelData8(PF_LayerDef *world, void *none, PF_Pixel8 **base) { return *base = pixels[world - worlds], 0; }

static int fail(const char *text) { return fprintf(stderr, "%s\n", text), 1; }

int main(int count, char **arguments) {
    if (count < 6)
        return fail("host MODULE WIDTH HEIGHT INPUT OUTPUT VALUE...");
    void *const module = dlopen(arguments[1], RTLD_NOW);
    const PF_EntryPointFunc entry = module ? (PF_EntryPointFunc)dlsym(module, "EntryPointFunc") : NULL;
    if (!entry)
        return fail(dlerror());
    PF_UtilCallbacks utils = {{sprintf, strcpy}, pixelData8, NULL, NULL};
    SPBasicSuite suites = {acquire, release};
    PF_InData in = {{checkoutParam, checkinParam, addParam}, &utils, NULL, &suites, 0, 1, 25};
    PF_OutData out = {0};
    if (entry(PF_Cmd_GLOBAL_SETUP, &in, &out, NULL, NULL, NULL) ||
        entry(PF_Cmd_PARAMS_SETUP, &in, &out, NULL, NULL, NULL))
        return fail("The setup failed.");
    if (count != 6 + sliderCount)
        return fail("Give a value for each slider.");
    for (int i = 0; i < sliderCount; ++i)
        sliders[i].u.sd.value = atoi(arguments[6 + i]);

    const PF_LRect whole = {0, 0, atoi(arguments[2]), atoi(arguments[3])};
    const size_t bytes = (size_t)4 * whole.right * whole.bottom;
    for (int i = 0; i < 2; ++i) {
        worlds[i] = (PF_LayerDef){whole.right, whole.bottom, 4 * whole.right};
        pixels[i] = malloc(bytes);
    }
    FILE *const input = fopen(arguments[4], "rb");
    if (!input || fread(pixels[0], 1, bytes, input) != bytes)
        return fail("The input can't be read, or is too short.");

    PF_PreRenderInput request = {{whole, 0xF}};
    PF_PreRenderOutput promise = {{0}, {0}};
    PF_PreRenderCallbacks layers = {checkoutLayer};
    PF_PreRenderExtra before = {&request, &promise, &layers};
    PF_SmartRenderInput frame = {{whole, 0xF}, 8};
    PF_SmartRenderCallbacks checkouts = {checkoutInput, NULL, checkoutOutput};
    PF_SmartRenderExtra render = {&frame, &checkouts};
    const int failed = entry(PF_Cmd_SMART_PRE_RENDER, &in, &out, NULL, NULL, &before) ||
                       entry(PF_Cmd_SMART_RENDER, &in, &out, NULL, NULL, &render);
    entry(PF_Cmd_GLOBAL_SETDOWN, &in, &out, NULL, NULL, NULL);
    if (failed)
        return fail(out.out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE ? out.return_msg : "The frame failed.");

    FILE *const output = fopen(arguments[5], "wb");
    return output && fwrite(pixels[1], 1, bytes, output) == bytes && fclose(output) == 0
               ? 0
               : fail("The output can't be written.");
}
