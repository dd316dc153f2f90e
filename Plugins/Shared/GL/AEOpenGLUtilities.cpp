#include "Plugins/Shared/GL/AEOpenGLUtilities.h"

#include "Plugins/Shared/GL/GLFailure.h"
#include "Plugins/Shared/GL/TextureOwner.h"
#include "Plugins/Shared/Helper/HostPixels.h"
#include "Plugins/Shared/Helper/SuiteScoper.h"

#include <glbinding/gl/enum.h>
#include <glbinding/gl/functions.h>

#include <algorithm>
#include <memory>

namespace Tessaloom::BilateralBlur {

namespace {

// What `CopyPixelFloatIn` and `CopyPixelFloatOut` get as their context.
struct StagingImage {
    PF_PixelFloat* buffer;
    PF_LayerDef* world;

    PF_PixelFloat& at(int x, int y) const {
        return buffer[static_cast<std::size_t>(y) * static_cast<std::size_t>(world->width) +
                      static_cast<std::size_t>(x)];
    }
};

// Rows of the pixels to come are `pixels` long, until the end of the scope.
class RowLength {
public:
    explicit RowLength(int pixels) { gl::glPixelStorei(gl::GL_UNPACK_ROW_LENGTH, pixels); }
    ~RowLength() { gl::glPixelStorei(gl::GL_UNPACK_ROW_LENGTH, 0); }
    RowLength(const RowLength&) = delete;
    RowLength& operator=(const RowLength&) = delete;
};

gl::GLuint makeTexture() {
    gl::GLuint name = 0;
    gl::glGenTextures(1, &name);
    return name;
}

void iterateFloat(PF_InData* in_data, PF_LayerDef* source, StagingImage image,
                  PF_IteratePixelFloatFunc function, PF_LayerDef* destination) {
    const SuiteScoper<PF_iterateFloatSuite1> suite(in_data, "PF iterateFloat Suite", 1, nullptr, nullptr);
    const PF_Err result =
        suite->iterate(in_data, 0, source->height, source, nullptr, &image, function, destination);
    if (result != PF_Err_NONE)
        throw int{result};
}

void uploadRows(int firstRow, int width, int rows, gl::GLenum type, const void* pixels) {
    gl::glTexSubImage2D(gl::GL_TEXTURE_2D, 0, 0, firstRow, width, rows, gl::GL_RGBA, type, pixels);
}

// Rows that run upwards in memory go up one by one: GL has no negative distance.
template<typename Pixel>
void uploadWorld(PF_InData* in_data, PF_LayerDef* input, gl::GLenum type) {
    const int distance = input->rowbytes / static_cast<int>(sizeof(Pixel));
    const RowLength rowLength(std::max(distance, 0));
    const auto* pixels = reinterpret_cast<const Pixel*>(baseAddress<Pixel>(in_data, input));
    if (distance >= 0)
        uploadRows(0, input->width, input->height, type, pixels);
    else
        for (int row = 0; row < input->height; ++row)
            uploadRows(row, input->width, 1, type, pixels + std::ptrdiff_t{row} * distance);
}

void uploadFloat(PF_InData* in_data, PF_LayerDef* input) {
    const std::size_t pixels =
        static_cast<std::size_t>(input->width) * static_cast<std::size_t>(input->height);
    const std::unique_ptr<PF_PixelFloat[]> buffer(new PF_PixelFloat[pixels]);
    iterateFloat(in_data, input, {buffer.get(), input}, AEOpenGLUtilities::CopyPixelFloatIn, input);
    const RowLength rowLength(input->width);
    uploadRows(0, input->width, input->height, gl::GL_FLOAT, buffer.get());
}

} // namespace

gl::GLuint AEOpenGLUtilities::UploadTexture(int format, PF_LayerDef* input, PF_LayerDef*, PF_InData* in_data,
                                            unsigned long& pixelSize, gl::GLenum& pixelType,
                                            float& multiplier16bit, bool mipmapped) {
    TextureOwner texture(makeTexture());
    gl::glBindTexture(gl::GL_TEXTURE_2D, texture.name());
    // Magnification knows no mip levels, so it is linear in either case.
    gl::glTexParameteri(gl::GL_TEXTURE_2D, gl::GL_TEXTURE_MAG_FILTER, gl::GL_LINEAR);
    gl::glTexParameteri(gl::GL_TEXTURE_2D, gl::GL_TEXTURE_MIN_FILTER,
                        mipmapped ? gl::GL_LINEAR_MIPMAP_LINEAR : gl::GL_LINEAR);
    gl::glTexParameteri(gl::GL_TEXTURE_2D, gl::GL_TEXTURE_WRAP_S, gl::GL_CLAMP_TO_EDGE);
    gl::glTexParameteri(gl::GL_TEXTURE_2D, gl::GL_TEXTURE_WRAP_T, gl::GL_CLAMP_TO_EDGE);
    gl::glTexImage2D(gl::GL_TEXTURE_2D, 0, static_cast<gl::GLint>(gl::GL_RGBA32F), input->width,
                     input->height, 0, gl::GL_RGBA, gl::GL_FLOAT, nullptr);

    multiplier16bit = 1.0f;
    switch (format) {
    case PF_PixelFormat_ARGB32:
        pixelType = gl::GL_UNSIGNED_BYTE;
        pixelSize = sizeof(PF_Pixel8);
        uploadWorld<PF_Pixel8>(in_data, input, pixelType);
        break;
    case PF_PixelFormat_ARGB64:
        pixelType = gl::GL_UNSIGNED_SHORT;
        pixelSize = sizeof(PF_Pixel16);
        multiplier16bit = 65535.0f / 32768.0f;
        uploadWorld<PF_Pixel16>(in_data, input, pixelType);
        break;
    case PF_PixelFormat_ARGB128:
        pixelType = gl::GL_FLOAT;
        pixelSize = sizeof(PF_PixelFloat);
        uploadFloat(in_data, input);
        break;
    default:
        throw int{PF_Err_BAD_CALLBACK_PARAM};
    }
    gl::glBindTexture(gl::GL_TEXTURE_2D, 0);
    return texture.handOver();
}

void AEOpenGLUtilities::DownloadTexture(unsigned width, unsigned height, PF_LayerDef* input,
                                        PF_LayerDef* output, PF_InData* in_data, int format,
                                        unsigned long pixelSize, gl::GLenum pixelType) {
    const SuiteScoper<PF_HandleSuite1> suite(in_data, "PF Handle Suite", 2, nullptr, nullptr);
    const LockedHandle image(suite, static_cast<std::uint64_t>(width * height) * pixelSize);
    gl::glReadBuffer(gl::GL_COLOR_ATTACHMENT0);
    takeGLErrors(); // of earlier calls
    gl::glReadPixels(0, 0, static_cast<gl::GLsizei>(width), static_cast<gl::GLsizei>(height), gl::GL_RGBA,
                     pixelType, image.data());
    if (const gl::GLenum error = takeGLErrors(); error != gl::GL_NO_ERROR)
        throw GLFailure(error);

    // The rows of a larger output would be read from beyond the image.
    const bool isEmpty = output->width <= 0 || output->height <= 0;
    if (!isEmpty && (output->width > static_cast<std::int64_t>(width) ||
                     output->height > static_cast<std::int64_t>(height)))
        throw int{PF_Err_BAD_CALLBACK_PARAM};
    switch (format) {
    case PF_PixelFormat_ARGB32:
        copyRows<PF_Pixel8>(in_data, output, image.data(), width);
        break;
    case PF_PixelFormat_ARGB64:
        copyRows<PF_Pixel16>(in_data, output, image.data(), width);
        break;
    case PF_PixelFormat_ARGB128:
        iterateFloat(in_data, input, {reinterpret_cast<PF_PixelFloat*>(image.data()), input},
                     CopyPixelFloatOut, output);
        break;
    default:
        throw int{PF_Err_BAD_CALLBACK_PARAM};
    }
}

PF_Err AEOpenGLUtilities::CopyPixelFloatIn(void* refcon, int x, int y, PF_PixelFloat* in, PF_PixelFloat*) {
    static_cast<const StagingImage*>(refcon)->at(x, y) = *in;
    return PF_Err_NONE;
}

PF_Err AEOpenGLUtilities::CopyPixelFloatOut(void* refcon, int x, int y, PF_PixelFloat*, PF_PixelFloat* out) {
    *out = static_cast<const StagingImage*>(refcon)->at(x, y);
    return PF_Err_NONE;
}

std::string AEOpenGLUtilities::CheckFramebufferStatus() {
    switch (gl::glCheckFramebufferStatus(gl::GL_FRAMEBUFFER)) {
    case gl::GL_FRAMEBUFFER_COMPLETE:
        return "OK";
    case gl::GL_FRAMEBUFFER_INCOMPLETE_ATTACHMENT:
        return "Framebuffer incomplete, incomplete attachment!";
    case gl::GL_FRAMEBUFFER_INCOMPLETE_MISSING_ATTACHMENT:
        return "Framebuffer incomplete, missing attachment!";
    case gl::GL_FRAMEBUFFER_INCOMPLETE_DRAW_BUFFER:
        return "Framebuffer incomplete, missing draw buffer!";
    case gl::GL_FRAMEBUFFER_INCOMPLETE_READ_BUFFER:
        return "Framebuffer incomplete, missing read buffer!";
    case gl::GL_FRAMEBUFFER_UNSUPPORTED:
        return "Unsupported framebuffer format!";
    default:
        return "Unknown error!";
    }
}

} // namespace Tessaloom::BilateralBlur
