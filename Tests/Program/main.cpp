#include <gtest/gtest.h>
#include <vips/vips8>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (VIPS_INIT(argv[0]) != 0)
        return 1;
    // Files are written again under the same names.
    vips_cache_set_max(0);
    return RUN_ALL_TESTS();
}
