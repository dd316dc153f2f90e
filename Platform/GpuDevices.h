#pragma once

/// False where no driver of OpenGL can reach a GPU: none of the device files by which they do is there. A user who
/// names drivers, in the environment variables of the loader of EGL drivers, decides that.
bool mayHaveGpu();
