#pragma once

#ifdef __cplusplus
#include <cstdint>
#else
#include <stdint.h>
#endif

/// The records, callbacks and suites through which a host and the effect talk. A host fills them in and
/// owns them; the effect borrows them for the length of one command. A host and a module agree on the offset
/// of every field only if both are built from this header, in C++ or in C. Fields that no source of this tree
/// reads, `ui_flags` for one, are a part of that layout.
///
/// Pixels have their channels in the order alpha, red, green, blue. All text is zero-terminated.

typedef int32_t PF_Err;
typedef int32_t PF_Cmd;

// The constants of an enumeration have its type in C++; in C they are ints.
#ifdef __cplusplus
#define PF_TYPE(Type) : Type
#define PF_INLINE constexpr
#else
#define PF_TYPE(Type)
#define PF_INLINE static inline
#endif

/// What a command or callback returns: 0 for success.
enum PF_TYPE(PF_Err) {
    PF_Err_NONE = 0,
    PF_Err_OUT_OF_MEMORY = 4,
    PF_Err_UNRECOGNIZED_PARAM_TYPE = 514,
    PF_Err_BAD_CALLBACK_PARAM = 516,
};

/// What a scope throws when the host doesn't have the suite that it was asked for.
enum PF_TYPE(int) { kSPSuiteNotFound = 13 };

enum PF_TYPE(PF_Cmd) {
    PF_Cmd_ABOUT = 0,
    PF_Cmd_GLOBAL_SETUP = 1,
    PF_Cmd_GLOBAL_SETDOWN = 3,
    PF_Cmd_PARAMS_SETUP = 4,
    PF_Cmd_SMART_PRE_RENDER = 23,
    PF_Cmd_SMART_RENDER = 24,
};

/// Bits of `PF_OutData::out_flags`. An effect takes frames of 8 bits a channel, and of more where it says so in
/// its global setup: of 16 bits here, of 32-bit floats in `out_flags2`.
enum PF_TYPE(int32_t) {
    PF_OutFlag_DISPLAY_ERROR_MESSAGE = 0x100, ///< the host shows `return_msg` to the user
    PF_OutFlag_DEEP_COLOR_AWARE = 0x2000000,  ///< takes frames of 16 bits a channel
};

/// Bits of `PF_OutData::out_flags2`.
enum PF_TYPE(int32_t) {
    PF_OutFlag2_SUPPORTS_SMART_RENDER = 0x400,
    PF_OutFlag2_FLOAT_COLOR_AWARE = 0x1000, ///< takes frames of 32-bit floats
};

enum PF_TYPE(int32_t) { PF_Stage_DEVELOP = 0 };

/// The packed version word: build in bits 0 to 8, stage in 9 and 10, bugfix level in 11 to 14, subversion
/// in 15 to 18, version from bit 19.
PF_INLINE uint32_t PF_VERSION(uint32_t version, uint32_t subversion, uint32_t bugfix, uint32_t stage,
                              uint32_t build) {
    return version << 19 | subversion << 15 | bugfix << 11 | stage << 9 | build;
}

/// Tags of the three pixel formats; in memory order their bytes spell "argb", "ae16", "ae32".
enum PF_TYPE(int32_t) {
    PF_PixelFormat_ARGB32 = 0x62677261,
    PF_PixelFormat_ARGB64 = 0x36316561,
    PF_PixelFormat_ARGB128 = 0x32336561,
};

typedef struct PF_Pixel8 {
    uint8_t alpha, red, green, blue;
} PF_Pixel8;

/// Full scale is 32768.
typedef struct PF_Pixel16 {
    uint16_t alpha, red, green, blue;
} PF_Pixel16;

/// Full scale is 1.0.
typedef struct PF_PixelFloat {
    float alpha, red, green, blue;
} PF_PixelFloat;

/// A world of pixels. The `get_pixel_data` callbacks of the host give the pixels' address.
typedef struct PF_LayerDef {
    int32_t width;    ///< in pixels
    int32_t height;   ///< in pixels
    int32_t rowbytes; ///< distance from row to row in bytes; may exceed the width's bytes
} PF_LayerDef;

/// Empty where `left >= right` or `top >= bottom`.
typedef struct PF_LRect {
    int32_t left, top, right, bottom;
} PF_LRect;

enum PF_TYPE(int32_t) { PF_Param_LAYER = 0, PF_Param_SLIDER = 1 };

/// An integer slider. `valid_min` to `valid_max` is what may be typed, `slider_min` to `slider_max` what
/// the slider spans.
typedef struct PF_SliderDef {
    int32_t value;
    char value_str[32];
    char value_desc[32];
    int32_t valid_min, valid_max;
    int32_t slider_min, slider_max;
    int32_t dephault;
} PF_SliderDef;

/// A parameter: declared by the effect with `add_param`, read back with `checkout_param`.
typedef struct PF_ParamDef {
    union {
        int32_t id;
    } uu;
    int32_t ui_flags;
    int16_t ui_width, ui_height;
    int32_t param_type;
    char name[32];
    int32_t flags;
    union {
        PF_SliderDef sd;
    } u;
} PF_ParamDef;

/// The host's table of suites. Both functions return 0 on success.
typedef struct SPBasicSuite {
    PF_Err (*AcquireSuite)(const char* name, int32_t version, const void** suite);
    PF_Err (*ReleaseSuite)(const char* name, int32_t version);
} SPBasicSuite;

typedef struct PF_InteractCallbacks {
    PF_Err (*checkout_param)(void* effect_ref, int32_t index, int32_t time, int32_t time_step,
                             uint32_t time_scale, PF_ParamDef* param);
    PF_Err (*checkin_param)(void* effect_ref, PF_ParamDef* param);
    /// An index of -1 appends the parameter.
    PF_Err (*add_param)(void* effect_ref, int32_t index, PF_ParamDef* param);
} PF_InteractCallbacks;

typedef struct PF_ANSICallbacks {
    int (*sprintf)(char* destination, const char* format, ...);
    char* (*strcpy)(char* destination, const char* source);
} PF_ANSICallbacks;

typedef struct PF_UtilCallbacks {
    PF_ANSICallbacks ansi;
    /// Gives the base address of a world of 8 bits (16 bits, floats) a channel. Another depth is an error, and
    /// the address then null.
    PF_Err (*get_pixel_data8)(PF_LayerDef* world, void* pixels, PF_Pixel8** base);
    PF_Err (*get_pixel_data16)(PF_LayerDef* world, void* pixels, PF_Pixel16** base);
    PF_Err (*get_pixel_data_float)(PF_LayerDef* world, void* pixels, PF_PixelFloat** base);
} PF_UtilCallbacks;

/// What the host hands to every command.
typedef struct PF_InData {
    PF_InteractCallbacks inter;
    PF_UtilCallbacks* utils;
    void* effect_ref; ///< the host's own; goes back to it in each callback
    SPBasicSuite* pica_basicP;
    int32_t current_time, time_step;
    uint32_t time_scale;
} PF_InData;

/// What a command tells the host.
typedef struct PF_OutData {
    uint32_t my_version; ///< see `PF_VERSION`
    void* global_data;
    void* sequence_data;
    void* frame_data;
    int32_t num_params; ///< the input layer at index 0 counts
    int32_t out_flags, out_flags2;
    char return_msg[256];
} PF_OutData;

/// The rectangle and the channels that are asked for.
typedef struct PF_RenderRequest {
    PF_LRect rect;
    int32_t channel_mask;
} PF_RenderRequest;

typedef struct PF_CheckoutResult {
    PF_LRect result_rect;     ///< what the layer gives for the request
    PF_LRect max_result_rect; ///< what it could give for any request
} PF_CheckoutResult;

typedef struct PF_PreRenderInput {
    PF_RenderRequest output_request;
} PF_PreRenderInput;

typedef struct PF_PreRenderOutput {
    PF_LRect result_rect, max_result_rect;
} PF_PreRenderOutput;

typedef struct PF_PreRenderCallbacks {
    PF_Err (*checkout_layer)(void* effect_ref, int32_t index, int32_t checkout_id,
                             const PF_RenderRequest* request, int32_t time, int32_t time_step,
                             uint32_t time_scale, PF_CheckoutResult* result);
} PF_PreRenderCallbacks;

/// `extra` of `PF_Cmd_SMART_PRE_RENDER`.
typedef struct PF_PreRenderExtra {
    PF_PreRenderInput* input;
    PF_PreRenderOutput* output;
    PF_PreRenderCallbacks* cb;
} PF_PreRenderExtra;

typedef struct PF_SmartRenderCallbacks {
    PF_Err (*checkout_layer_pixels)(void* effect_ref, int32_t checkout_id, PF_LayerDef** world);
    PF_Err (*checkin_layer_pixels)(void* effect_ref, int32_t checkout_id);
    PF_Err (*checkout_output)(void* effect_ref, PF_LayerDef** world);
} PF_SmartRenderCallbacks;

typedef struct PF_SmartRenderInput {
    PF_RenderRequest output_request;
    int16_t bitdepth; ///< bits of a channel of the frame's input and output, which have one depth: 8, 16, 32
} PF_SmartRenderInput;

/// `extra` of `PF_Cmd_SMART_RENDER`.
typedef struct PF_SmartRenderExtra {
    PF_SmartRenderInput* input;
    PF_SmartRenderCallbacks* cb;
} PF_SmartRenderExtra;

/// The type of the module's one exported function, "EntryPointFunc".
typedef PF_Err (*PF_EntryPointFunc)(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data,
                                    PF_ParamDef* params[], PF_LayerDef* output, void* extra);

/// "PF ANSI Suite", version 1.
typedef struct PF_ANSICallbacksSuite1 {
    int (*sprintf)(char* destination, const char* format, ...);
} PF_ANSICallbacksSuite1;

/// "PF Handle Suite", version 2: host memory. A lock gives the address, which holds until the unlock.
typedef struct PF_HandleSuite1 {
    void* (*host_new_handle)(uint64_t size); ///< null when memory is exhausted
    void* (*host_lock_handle)(void* handle);
    void (*host_unlock_handle)(void* handle);
    void (*host_dispose_handle)(void* handle);
} PF_HandleSuite1;

typedef PF_Err (*PF_IteratePixelFloatFunc)(void* refcon, int x, int y, PF_PixelFloat* in, PF_PixelFloat* out);

/// "PF iterateFloat Suite", version 1: calls a function for each pixel of a float world, on several
/// threads if the host likes. A null area means the whole world.
typedef struct PF_iterateFloatSuite1 {
    PF_Err (*iterate)(PF_InData* in_data, int32_t progress_base, int32_t progress_final, PF_LayerDef* source,
                      const PF_LRect* area, void* refcon, PF_IteratePixelFloatFunc pixel_func,
                      PF_LayerDef* destination);
} PF_iterateFloatSuite1;

/// "AEGP PF Interface Suite" version 1, "AEGP Layer Suite" version 11, "AEGP Item Suite" version 10: the
/// effect asks for their presence and calls none of their functions.
typedef struct AEGP_PFInterfaceSuite1 AEGP_PFInterfaceSuite1;
typedef struct AEGP_LayerSuite5 AEGP_LayerSuite5;
typedef struct AEGP_ItemSuite6 AEGP_ItemSuite6;

typedef void* AEGP_MemHandle;

/// "AEGP Utility Suite", version 11. Both handles are the caller's to free.
typedef struct AEGP_UtilitySuite5 {
    PF_Err (*AEGP_ExecuteScript)(int32_t plugin_id, const char* script, uint8_t platform_encoding,
                                 AEGP_MemHandle* result, AEGP_MemHandle* error);
} AEGP_UtilitySuite5;

/// "AEGP Memory Suite", version 1.
typedef struct AEGP_MemorySuite1 {
    PF_Err (*AEGP_LockMemHandle)(AEGP_MemHandle handle, void** address);
    PF_Err (*AEGP_FreeMemHandle)(AEGP_MemHandle handle);
} AEGP_MemorySuite1;

/// The four drawing suites of a host's custom interface; nothing of them is called.
typedef struct DRAWBOT_Suites {
    const void* drawbot_suiteP;
    const void* supplier_suiteP;
    const void* surface_suiteP;
    const void* path_suiteP;
} DRAWBOT_Suites;

#undef PF_TYPE
#undef PF_INLINE
