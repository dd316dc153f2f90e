// A program that was built against the installed library:
//   program WIDTH HEIGHT INPUT BLURRED SMOOTHED
// The files are raw RGBA: an image, and what the program bilateral-blur makes of it at scale 20, and at radius 8 and
// threshold 0.05. It prints the first condition that isn't met, and nothing where all are.
#include <bilateral-blur.h>

#include <math.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#define REQUIRE(condition) \
    do { \
        if (!(condition)) { \
            fprintf(stderr, "line %d: %s\n", __LINE__, #condition); \
            _exit(1); \
        } \
    } while (0)

static size_t width, height, size;
static unsigned char *input, *blurred, *smoothed;

static unsigned char *contents(const char *name) {
    unsigned char *bytes = malloc(size);
    FILE *file = fopen(name, "rb");
    REQUIRE(bytes && file && fread(bytes, 1, size, file) == size);
    fclose(file);
    return bytes;
}

static struct bilateral_blur_image image_into(void *output) {
    const ptrdiff_t stride = 4 * (ptrdiff_t)width;
    return (struct bilateral_blur_image){width, height, 4, BILATERAL_BLUR_8_BITS, input, stride, output, stride};
}

static void *filter_repeatedly(void *unused) {
    unsigned char *result = malloc(size);
    const struct bilateral_blur_image image = image_into(result);
    for (int i = 0; i < 5; ++i) {
        REQUIRE(bilateral_blur_blur(&image, 20) == BILATERAL_BLUR_OK);
        REQUIRE(memcmp(result, blurred, size) == 0);
        REQUIRE(bilateral_blur_smooth(&image, 8, 0.05) == BILATERAL_BLUR_OK);
        REQUIRE(memcmp(result, smoothed, size) == 0);
    }
    free(result);
    return unused;
}

static void *filter_to_the_end(void *unused) {
    static unsigned char *result;
    result = malloc(size);
    const struct bilateral_blur_image image = image_into(result);
    while (bilateral_blur_blur(&image, 60) == BILATERAL_BLUR_OK)
        ;
    return unused;
}

static void filter_in_place_upwards_with_gaps(void) {
    const size_t row = 4 * width, stride = row + 3;
    unsigned char *rows = malloc(stride * height), *top = rows + stride * (height - 1);
    memset(rows, 77, stride * height);
    for (size_t y = 0; y < height; ++y)
        memcpy(top - stride * y, input + row * y, row);
    const struct bilateral_blur_image image = {width, height, 4, BILATERAL_BLUR_8_BITS, top, -(ptrdiff_t)stride,
                                               top, -(ptrdiff_t)stride};
    REQUIRE(bilateral_blur_smooth(&image, 8, 0.05) == BILATERAL_BLUR_OK);
    for (size_t y = 0; y < height; ++y) {
        REQUIRE(memcmp(top - stride * y, smoothed + row * y, row) == 0);
        REQUIRE(top[row - stride * y] == 77 && top[row + 2 - stride * y] == 77);
    }
    free(rows);
}

static void refuse_what_is_wrong(void) {
    static float a[64], b[64];
    enum { Float = BILATERAL_BLUR_FLOAT };
    const struct {
        struct bilateral_blur_image image;
        int radius;
        double threshold;
        int code;
    } calls[] = {
        {{4, 2, 3, Float, a, 48, b, 48}, 2, 0.1, BILATERAL_BLUR_OK},
        {{2, 2, 3, Float, a, 48, a + 6, 48}, 2, 0.1, BILATERAL_BLUR_OK}, // side by side
        {{4, 2, 3, Float, NULL, 48, b, 48}, 2, 0.1, BILATERAL_BLUR_NULL_POINTER},
        {{4, 2, 3, Float, a, 48, NULL, 48}, 2, 0.1, BILATERAL_BLUR_NULL_POINTER},
        {{0, 2, 3, Float, a, 48, b, 48}, 2, 0.1, BILATERAL_BLUR_BAD_SIZE},
        {{4, (size_t)1 << 32, 3, Float, a, 48, b, 48}, 2, 0.1, BILATERAL_BLUR_BAD_SIZE},
        {{4, 2, 5, Float, a, 80, b, 80}, 2, 0.1, BILATERAL_BLUR_BAD_CHANNELS},
        {{4, 2, 3, 24, a, 48, b, 48}, 2, 0.1, BILATERAL_BLUR_BAD_DEPTH},
        {{4, 2, 3, Float, a, 44, b, 48}, 2, 0.1, BILATERAL_BLUR_BAD_STRIDE},
        {{4, 2, 3, Float, a, 48, b, -44}, 2, 0.1, BILATERAL_BLUR_BAD_STRIDE},
        {{4, 2, 3, Float, a, 50, b, 48}, 2, 0.1, BILATERAL_BLUR_BAD_ALIGNMENT},
        {{4, 2, 3, Float, a, 48, (char *)b + 2, 48}, 2, 0.1, BILATERAL_BLUR_BAD_ALIGNMENT},
        {{4, 2, 3, Float, a, 48, a + 1, 48}, 2, 0.1, BILATERAL_BLUR_OVERLAP},
        {{4, 2, 3, Float, a, 48, a, 52}, 2, 0.1, BILATERAL_BLUR_OVERLAP},
        {{4, 2, 3, Float, a + 24, -48, a, 48}, 2, 0.1, BILATERAL_BLUR_OVERLAP},
        {{4, 2, 3, Float, a, 48, b, 48}, 61, 0.1, BILATERAL_BLUR_BAD_RADIUS},
        {{4, 2, 3, Float, a, 48, b, 48}, -1, 0.1, BILATERAL_BLUR_BAD_RADIUS},
        {{4, 2, 3, Float, a, 48, b, 48}, 2, 0, BILATERAL_BLUR_BAD_THRESHOLD},
        {{4, 2, 3, Float, a, 48, b, 48}, 2, NAN, BILATERAL_BLUR_BAD_THRESHOLD},
    };
    for (size_t i = 0; i < sizeof calls / sizeof calls[0]; ++i) {
        const int code = bilateral_blur_smooth(&calls[i].image, calls[i].radius, calls[i].threshold);
        if (code != calls[i].code)
            fprintf(stderr, "call %zu: %s\n", i, bilateral_blur_text(code));
    }
    REQUIRE(bilateral_blur_blur(NULL, 20) == BILATERAL_BLUR_NULL_POINTER);
    REQUIRE(bilateral_blur_blur(&calls[0].image, 20) == BILATERAL_BLUR_NEEDS_8_BITS);
    REQUIRE(bilateral_blur_blur(&calls[0].image, 61) == BILATERAL_BLUR_BAD_BLUR_SCALE);
    for (int code = 1; code <= BILATERAL_BLUR_FAILED; ++code)
        REQUIRE(strcmp(bilateral_blur_text(code), bilateral_blur_text(-1)) != 0);
}

static void run_out_of_memory(void) {
    enum { Width = 1 << 26 };
    const struct rlimit before = {RLIM_INFINITY, RLIM_INFINITY};
    unsigned char *grey = calloc(Width, 1);
    long pages = 0;
    FILE *file = fopen("/proc/self/statm", "r");
    REQUIRE(grey && file && fscanf(file, "%ld", &pages) == 1);
    fclose(file);
    const struct rlimit limit = {(rlim_t)(pages * sysconf(_SC_PAGESIZE)) + (100 << 20), RLIM_INFINITY};
    const struct bilateral_blur_image image = {Width, 1, 1, BILATERAL_BLUR_8_BITS, grey, 0, grey, 0};
    REQUIRE(setrlimit(RLIMIT_AS, &limit) == 0);
    REQUIRE(bilateral_blur_smooth(&image, 1, 0.1) == BILATERAL_BLUR_OUT_OF_MEMORY);
    REQUIRE(setrlimit(RLIMIT_AS, &before) == 0);
    free(grey);
}

static void refuse_in_a_fork(void) {
    int status = 0;
    const pid_t child = fork();
    if (child == 0) {
        const struct bilateral_blur_image image = image_into(input);
        _exit(bilateral_blur_blur(&image, 20));
    }
    REQUIRE(waitpid(child, &status, 0) == child);
    REQUIRE(WIFEXITED(status) && WEXITSTATUS(status) == BILATERAL_BLUR_FORKED);
}

int main(int count, char **arguments) {
    REQUIRE(count == 6);
    width = strtoul(arguments[1], NULL, 10);
    height = strtoul(arguments[2], NULL, 10);
    size = 4 * width * height;
    input = contents(arguments[3]);
    blurred = contents(arguments[4]);
    smoothed = contents(arguments[5]);
    pthread_t threads[4];
    for (int i = 0; i < 4; ++i)
        REQUIRE(pthread_create(&threads[i], NULL, filter_repeatedly, NULL) == 0);
    for (int i = 0; i < 4; ++i)
        REQUIRE(pthread_join(threads[i], NULL) == 0);
    filter_in_place_upwards_with_gaps();
    refuse_what_is_wrong();
#ifdef __SANITIZE_ADDRESS__
    (void)run_out_of_memory; // the address sanitizer ends the process
#else
    run_out_of_memory();
#endif
    refuse_in_a_fork();
    REQUIRE(pthread_create(&threads[0], NULL, filter_to_the_end, NULL) == 0);
}
